#include "api/guard.h"
#include "library_version.h"
#include "post/text_conversion.h"
#include "qzdata_report.h"

namespace qzdata_report_kelvo {

std::string GetSDKVersion() {
    return Guarded(std::string(), [] { return std::string(version::kSdkVersion); });
}

}  // namespace qzdata_report_kelvo

namespace qzdata_report_kelvo_internal {

using qzdata_report_kelvo::Guarded;

bool QZA2W(const std::string& source, std::wstring& target, unsigned int codePage) {
    return Guarded(false,
                   [&] { return qzdata_report_kelvo::NarrowToWide(source, target, codePage); });
}

bool QZW2A(const std::wstring& source, std::string& target, unsigned int codePage) {
    return Guarded(false,
                   [&] { return qzdata_report_kelvo::WideToNarrow(source, target, codePage); });
}

void StrReplace(std::string& target, const std::string& source, const std::string& from,
                const std::string& to) {
    const bool replaced = Guarded(false, [&] {
        qzdata_report_kelvo::ReplaceText(target, source, from, to);
        return true;
    });
    if (!replaced) {
        target.clear();
    }
}

}  // namespace qzdata_report_kelvo_internal
