// Seam of the per-user application data folder, the base of the log directory.
#pragma once

#include <string>

namespace qzdata_report_kelvo {
namespace port {

// The folder for per-user application data, without a trailing separator; empty when the
// platform names none. Any thread.
std::string GetAppDataFolder();

}  // namespace port
}  // namespace qzdata_report_kelvo
