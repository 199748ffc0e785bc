#include "port/app_data_folder.h"

#include <cstdlib>

namespace qzdata_report_kelvo {
namespace port {

std::string PlatformAppDataFolder() {
    const char* dataHome = std::getenv("XDG_DATA_HOME");
    if (dataHome != nullptr && dataHome[0] != '\0') {
        return dataHome;
    }
    const char* home = std::getenv("HOME");
    if (home != nullptr && home[0] != '\0') {
        return std::string(home) + "/.local/share";
    }
    return std::string();
}

}  // namespace port
}  // namespace qzdata_report_kelvo
