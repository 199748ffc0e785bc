// The record format: how one ReportRecord becomes the query text of one collector request.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include "qzdata_report.h"
#include "runtime/critical_section.h"

namespace qzdata_report_kelvo {

// Whether `key` stands at the top level of a record query (case-insensitive).
bool IsKnownParamName(const std::string& key);

// Whether the value of `key` is escaped on its own inside "extra" (case-insensitive).
bool IsEscapedParamName(const std::string& key);

// How EscapeParamValue treats bytes.
enum class ParamEscape {
    // Keeps ASCII letters, digits and "-_.!~*'()", turns a blank into "+", escapes every other
    // byte as "%XX" (upper-case).
    kStrictBlankAsPlus,
    // As kStrictBlankAsPlus, but a blank is escaped too.
    kStrict,
    // Escapes only bytes up to 32 and \ " ^ & ` < > [ ] { }, and copies all others, bytes of
    // 128 and above included.
    kLenient,
};

// Percent-escapes the zero-terminated `source` into `target`, a buffer of `targetSize` bytes
// that the result and its terminating zero always fit into; stops early when the next byte does
// not fit. Returns the bytes written without the terminator; 0 writes nothing when `targetSize`
// is 0.
uint32_t EscapeParamValue(const char* source, char* target, uint32_t targetSize, ParamEscape mode);

// Result of BuildRecordQuery.
enum class RecordQueryResult {
    kOk,
    // An escape yielded nothing: the record must be dropped.
    kDropped,
};

// The stateful part of the format: the long-to-short name table, the common parameters merged
// into every record, and the escape scratch. Owned by the report worker.
// Threads: SetCommonParams and GetCommonParams from any thread (under commonParamsLock, which
// stands alone); BuildRecordQuery on one thread at a time (the worker's).
class RecordFormatter {
  public:
    RecordFormatter();
    RecordFormatter(const RecordFormatter&) = delete;
    RecordFormatter& operator=(const RecordFormatter&) = delete;

    // Rewrites long keys of `record` to their short names; when both forms of a name stand in
    // the record, the one later in key order wins. Untouched when no key is long.
    void TranslateParamNames(ReportRecord& record) const;

    // Replaces the values merged into every record; keeps a known "mid" when `params` has none,
    // and never stores "act" or "ati".
    void SetCommonParams(const ReportRecord& params);
    ReportRecord GetCommonParams();

    // `query` becomes the record query of `params` merged with the common parameters, the
    // hardware id and the library's version; `action` its action ("zhwebevent" when it names
    // none). Keys of the top-level names come first, in key order; every other key goes into
    // "extra", whose whole text is escaped once more at the end.
    RecordQueryResult BuildRecordQuery(const ReportRecord& params, std::string& query,
                                       std::string& action);

  private:
    // Escapes `value` into the scratch and appends it to `out`; false when nothing came out.
    bool EscapeValue(const std::string& value, std::string& out);

    std::map<std::string, std::string> paramNames;
    CCriticalSection commonParamsLock;
    ReportRecord commonParams;  // guarded by commonParamsLock
    std::unique_ptr<char[]> escapeBuffer;
    uint32_t escapeCapacity;
    uint32_t escapeBufferSize;
};

}  // namespace qzdata_report_kelvo
