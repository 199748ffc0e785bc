// A stand-in for the older reporting library: a shared library that defines its 38 functions
// and logs every call with its arguments, in order. Every bool function answers false.
#pragma once

#include <string>
#include <vector>

#include "qzdata_report.h"

namespace qz_fake_legacy {

// Hands over the log so far (each call as Name(arg, arg, ...), and notes) and empties it.
std::vector<std::string> Take();
// Adds a line of the caller's own to the same log (to see what happened between calls).
void Note(const std::string& line);

// An event's record without the fields every event carries.
inline qzdata_report_kelvo::ReportRecord OwnFields(qzdata_report_kelvo::ReportRecord record) {
    for (const char* common : {"act", "session_id", "dty", "pro", "ati"})
        record.erase(common);
    return record;
}

}  // namespace qz_fake_legacy
