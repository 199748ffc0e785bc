// The record format: how one ReportRecord becomes the text of one collector request. The
// stateful steps (name translation, common parameters, the record query) are members of
// ReportThreadImpl (post/report_thread.h); the stateless ones are here.
#pragma once

#include <cstdint>
#include <string>

namespace qzdata_report_kelvo {

// Orders text by ASCII case folding, so that keys that differ only in case are one key.
struct CaseInsensitiveLess {
    bool operator()(const std::string& left, const std::string& right) const;
};

// Case-insensitive compare by ASCII folding: <0, 0, >0 as strcmp.
int CompareNoCase(const std::string& left, const std::string& right);

// Whether `key` stands at the top level of a record query (case-insensitive).
bool IsKnownParamName(const std::string& key);

// Whether the value of `key` is escaped on its own inside "extra" (case-insensitive).
bool IsEscapedParamName(const std::string& key);

// Percent-escapes the zero-terminated `source` into `target`, a buffer of `targetSize` bytes
// that the result and its terminating zero always fit into; stops early when the next byte does
// not fit. Returns the bytes written without the terminator; 0 writes nothing when `targetSize`
// is 0. Strict mode (`lenient` false) keeps ASCII letters, digits and "-_.!~*'()", turns a blank
// into "+" when `spaceToPlus`, and escapes every other byte as "%XX" (upper-case). Lenient mode
// escapes only bytes up to 32 and \ " ^ & ` < > [ ] { }, and copies all others, bytes of 128 and
// above included.
uint32_t EscapeParamValue(const char* source, char* target, uint32_t targetSize, bool spaceToPlus,
                          bool lenient);

}  // namespace qzdata_report_kelvo
