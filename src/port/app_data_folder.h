// Seam of the per-user application data folder, the base of the log directory.
#pragma once

#include <string>

namespace qzdata_report_kelvo {
namespace port {

// The folder for per-user application data, without a trailing separator; empty when the
// platform names none. The folder set by OverrideAppDataFolderForTesting, when there is one.
// Any thread.
std::string GetAppDataFolder();

// Makes GetAppDataFolder answer `folder` from now on; empty gives the answer back to the
// platform. Lets tests move the folder where no environment variable does. Any thread.
void OverrideAppDataFolderForTesting(const std::string& folder);

// The platform's own answer, which GetAppDataFolder gives when no override is set.
std::string PlatformAppDataFolder();

}  // namespace port
}  // namespace qzdata_report_kelvo
