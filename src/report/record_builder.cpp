#include "report/record_builder.h"

#include <algorithm>

namespace qzdata_report_kelvo {

RecordBuilder::RecordBuilder(ReportRecord& record) : record(record) {
    if (record.size() > kMaxReusedKeys) {
        record.clear();
    }
    for (auto it = record.begin(); it != record.end(); ++it) {
        stale[staleCount++] = it;
    }
}

RecordBuilder::~RecordBuilder() {
    for (size_t i = 0; i < staleCount; ++i) {
        record.erase(stale[i]);
    }
}

void RecordBuilder::Add(const std::string& key, const std::string& value, size_t limit) {
    const size_t length = std::min(value.size(), limit);
    auto it = record.lower_bound(key);
    if (it == record.end() || it->first != key) {
        record.emplace_hint(it, key, std::string(value, 0, length));
        return;
    }
    for (size_t i = 0; i < staleCount; ++i) {
        if (stale[i] == it) {
            stale[i] = stale[--staleCount];
            // Most values repeat from report to report. Leaving an equal value unwritten keeps
            // memory that another thread read last from having to move to this one.
            if (it->second.compare(0, std::string::npos, value, 0, length) != 0) {
                it->second.assign(value, 0, length);
            }
            return;
        }
    }
}

}  // namespace qzdata_report_kelvo
