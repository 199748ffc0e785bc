// Text conversion between narrow and wide strings, and the replacement of text. The exports
// QZA2W, QZW2A and StrReplace (src/api) run these under their guard; library code calls them
// directly. Any thread; they throw only when memory runs out.
#pragma once

#include <string>

namespace qzdata_report_kelvo {

// Narrow to wide text in `codePage` (0: the system's character set, 65001: UTF-8). `source` is
// taken up to its first zero. True when the whole text converted; `target` may then hold a
// partial result on false. An empty `source` gives true and an empty `target`.
bool NarrowToWide(const std::string& source, std::wstring& target, unsigned int codePage);
// Wide to narrow text; the mirror of NarrowToWide.
bool WideToNarrow(const std::wstring& source, std::string& target, unsigned int codePage);

// `target` becomes a copy of `source` (up to its first zero) with every `from` replaced by `to`,
// scanning left to right; replaced text is never searched again. An empty `from` would never end
// the scan: `target` is then a copy of `source`.
void ReplaceText(std::string& target, const std::string& source, const std::string& from,
                 const std::string& to);

// `source` up to its first zero as UTF-8; invalid sequences become U+FFFD. Empty on failure.
std::string WideToUtf8(const std::wstring& source);

// `source` up to its first zero, read as UTF-8, as wide text. Empty on failure.
std::wstring Utf8ToWide(const std::string& source);

}  // namespace qzdata_report_kelvo
