// Builds an event record in the memory of a record that was already sent.
#pragma once

#include <array>
#include <cstddef>
#include <string>

#include "qzdata_report.h"

namespace qzdata_report_kelvo {

// Fills `record` with insert semantics (the first value of a key stands). Whatever the record
// held before is reused: a key set again keeps its node and string buffer, and the old keys
// that were not set again are removed when the builder goes. Not thread-safe; the record must
// outlive the builder and must not change beside it.
class RecordBuilder {
  public:
    explicit RecordBuilder(ReportRecord& record);
    ~RecordBuilder();
    RecordBuilder(const RecordBuilder&) = delete;
    RecordBuilder& operator=(const RecordBuilder&) = delete;

    // Sets `key` to the first `limit` bytes of `value`, unless this builder has set it already.
    void Add(const std::string& key, const std::string& value, size_t limit = std::string::npos);

  private:
    // Old records larger than this are emptied instead of reused.
    static constexpr size_t kMaxReusedKeys = 16;

    ReportRecord& record;
    std::array<ReportRecord::iterator, kMaxReusedKeys> stale;
    size_t staleCount = 0;
};

}  // namespace qzdata_report_kelvo
