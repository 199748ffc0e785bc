#include "api/typed_events.h"

#include <string>

#include "report/event_ids.h"

namespace qzdata_report_kelvo {

namespace {

void AppendSegment(std::string& path, const char* segment) {
    if (Given(segment)) {
        path += '/';
        path += segment;
    }
}

bool EndEvent(ReportObject& object, EventFamily family, const std::string& path, const char* desc,
              const std::string& content, int dur) {
    const std::string description = DescribeEid(path, desc);
    if (family == EventFamily::kPost) {
        return object.PostCustomEvent(path, description, content, dur, true);
    }
    return object.SendCustomEvent(path, description, content, dur, true);
}

}  // namespace

bool ReportEventWithDur(ReportObject& object, EventFamily family, const char* eid, int dur,
                        const char* desc) {
    if (!Given(eid) || dur < 0) {
        return false;
    }
    return EndEvent(object, family, eid, desc, std::string(), dur);
}

bool ReportEventWithSrc(ReportObject& object, EventFamily family, const char* eid, const char* src,
                        const char* desc, const char* content) {
    if (!Given(eid)) {
        return false;
    }
    std::string path(eid);
    AppendSegment(path, src);
    return EndEvent(object, family, path, desc, Given(content) ? content : "", -1);
}

bool ReportEventWithInt(ReportObject& object, EventFamily family, const char* eid, int value,
                        const char* desc) {
    if (!Given(eid)) {
        return false;
    }
    std::string path(eid);
    path += '/';
    path += std::to_string(value);
    return EndEvent(object, family, path, desc, std::string(), -1);
}

bool ReportSimpleEvent(ReportObject& object, EventFamily family, const char* eid, const char* sub1,
                       const char* sub2, const char* desc, int dur) {
    if (!Given(eid)) {
        return false;
    }
    std::string path(eid);
    AppendSegment(path, sub1);
    AppendSegment(path, sub2);
    return EndEvent(object, family, path, desc, std::string(), dur < 0 ? -1 : dur);
}

}  // namespace qzdata_report_kelvo
