#include "port/app_data_folder.h"

#include <windows.h>

#include <shlobj.h>

namespace qzdata_report_kelvo {
namespace port {

std::string PlatformAppDataFolder() {
    char buffer[MAX_PATH] = {};
    // The folder is created when the profile does not have it yet, so that the log folders
    // below it can be made.
    if (FAILED(::SHGetFolderPathA(nullptr, CSIDL_APPDATA | CSIDL_FLAG_CREATE, nullptr,
                                  SHGFP_TYPE_CURRENT, buffer))) {
        return std::string();
    }
    return buffer;
}

}  // namespace port
}  // namespace qzdata_report_kelvo
