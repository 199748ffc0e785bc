// qzdata_report: client-side analytics reporting.
//
// A host calls these functions to report that it started and ended, who the user is, and that
// events, errors and pages happened. Delivery happens on the library's own threads; no function
// here does file or network work on the caller's thread, and none throws.
#pragma once

#include <string>

#include "qzdata_report_export.h"

namespace qzdata_report_kelvo {

// The library's version text, "vs-nat-2.2.5". Needs no set-up; callable at any time.
QZ_EXPORT std::string GetSDKVersion();

}  // namespace qzdata_report_kelvo

namespace qzdata_report_kelvo_internal {

// Narrow to wide text in `codePage` (0: the system's character set, 65001: UTF-8). `source` is
// taken up to its first zero. Returns true when the whole text converted; `target` may then hold
// a partial result on false. An empty `source` gives true and an empty `target`.
QZ_EXPORT bool QZA2W(const std::string& source, std::wstring& target, unsigned int codePage);

// Wide to narrow text; the mirror of QZA2W.
QZ_EXPORT bool QZW2A(const std::wstring& source, std::string& target, unsigned int codePage);

// `target` becomes a copy of `source` (up to its first zero) with every `from` replaced by `to`,
// scanning left to right; replaced text is never searched again. An empty `from` (or one
// beginning with a zero) replaces nothing: `target` is then a plain copy of `source`.
QZ_EXPORT void StrReplace(std::string& target, const std::string& source, const std::string& from,
                          const std::string& to);

}  // namespace qzdata_report_kelvo_internal
