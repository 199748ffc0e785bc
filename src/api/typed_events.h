// The typed event families: each builds an event path and a description from its arguments and
// ends in the report object's PostCustomEvent (Post family) or SendCustomEvent (Send family).
#pragma once

#include "report/report_object.h"

namespace qzdata_report_kelvo {

enum class EventFamily { kPost, kSend };

// Whether an argument text of an export is given: neither null nor empty.
inline bool Given(const char* text) {
    return text != nullptr && text[0] != '\0';
}
inline bool Given(const wchar_t* text) {
    return text != nullptr && text[0] != L'\0';
}

// Path `eid`; false for a null or empty `eid` or a `dur` below 0.
bool ReportEventWithDur(ReportObject& object, EventFamily family, const char* eid, int dur,
                        const char* desc);
// Path `eid`/`src` (`src` left out when null or empty). `content` (may be null) goes with the
// event; the Post family passes none.
bool ReportEventWithSrc(ReportObject& object, EventFamily family, const char* eid, const char* src,
                        const char* desc, const char* content);
// Path `eid`/`value` in signed decimal.
bool ReportEventWithInt(ReportObject& object, EventFamily family, const char* eid, int value,
                        const char* desc);
// Path `eid`/`sub1`/`sub2`, each part left out when null or empty; a `dur` below 0 sends none.
bool ReportSimpleEvent(ReportObject& object, EventFamily family, const char* eid, const char* sub1,
                       const char* sub2, const char* desc, int dur);

}  // namespace qzdata_report_kelvo
