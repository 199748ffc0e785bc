// Event ids: paths of segments joined by "/", their escaping, and the process-wide table of
// segment descriptions (filled by AddEidDescList, read by TranslateEid).
#pragma once

#include <string>
#include <vector>

#include "qzdata_report.h"

namespace qzdata_report_kelvo {

// `path` with every non-empty segment that has a description replaced by it; separators and
// empty segments stay. The table takes no lock: it must not change while reports are made.
std::string TranslateEid(const std::string& path);

// The description rule of the typed events: `desc` when given, else the translated path; empty
// when that equals the path, so that the record gets no description.
std::string DescribeEid(const std::string& path, const char* desc);

// Sets the description of each segment (case-insensitive; a later pair overwrites an earlier
// one and keeps the key as first written). A pair whose description does not convert to UTF-8
// is skipped. True when none was skipped. The array ends at a null `eid`; a null array is
// empty. Call before reports are made from other threads.
bool AddEidDescriptions(const std::vector<EidDescPair>& list);
bool AddEidDescriptions(const EidDescPtrPair* list);

// EidEscape and EidUnescape of the exported interface; see there.
bool EscapeEidText(const std::string& in, std::string* out, bool escapeSlash);
bool UnescapeEidText(const std::string& in, std::string* out);

}  // namespace qzdata_report_kelvo
