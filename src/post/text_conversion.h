// Text conversion between narrow and wide strings. The exported QZA2W, QZW2A and StrReplace are
// declared in the public header (namespace qzdata_report_kelvo_internal) and defined in
// text_conversion.cpp; the helpers below are the library's shorthand for the UTF-8 case that
// records use. StrReplace guards against an empty `from`, which would otherwise never end the
// scan: it then returns a copy of `source`.
#pragma once

#include <string>

#include "qzdata_report.h"

namespace qzdata_report_kelvo {

// `source` up to its first zero as UTF-8; invalid sequences become U+FFFD. Empty on failure.
std::string WideToUtf8(const std::wstring& source);

// `source` up to its first zero, read as UTF-8, as wide text. Empty on failure.
std::wstring Utf8ToWide(const std::string& source);

}  // namespace qzdata_report_kelvo
