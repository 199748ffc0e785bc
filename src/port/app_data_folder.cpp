#include "port/app_data_folder.h"

#include <mutex>

namespace qzdata_report_kelvo {
namespace port {

namespace {

std::mutex overrideLock;
std::string overrideFolder;  // empty: none

}  // namespace

std::string GetAppDataFolder() {
    {
        std::lock_guard<std::mutex> scoped(overrideLock);
        if (!overrideFolder.empty()) {
            return overrideFolder;
        }
    }
    return PlatformAppDataFolder();
}

void OverrideAppDataFolderForTesting(const std::string& folder) {
    std::lock_guard<std::mutex> scoped(overrideLock);
    overrideFolder = folder;
}

}  // namespace port
}  // namespace qzdata_report_kelvo
