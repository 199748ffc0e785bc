// The name of the operating system, as the statistics records and the export
// GetOsPlatformVersion give it. Pure and without state; any thread.
#pragma once

#include <string>

#include "port/hardware_info.h"

namespace qzdata_report_kelvo {

// The Windows name that the version facts stand for, one of the fixed spellings
// ("WindowsGetFailed" when the version query failed or no rule fits). A report of 6.2 from a
// workstation is checked against the product version of the system's ntdll, which tells 8, 8.1
// and 10 apart; without that version it is "Windows8". Without the extended record the product
// type reads as 0, not a workstation.
std::string ClassifyOs(const port::WindowsVersionFacts& facts);

// "Linux" followed by the major and minor number at the start of a kernel release text
// ("6.18.0-rc1" gives "Linux6.18"); "Linux" alone when the text does not start so. Has no
// blank, '&' or '=', since it travels raw in a query.
std::string LinuxVersionName(const std::string& release);

// The name of the system this process runs on: the Windows name on Windows, else the Linux
// name of the kernel release. Never throws.
std::string GetOsPlatformVersionText();

}  // namespace qzdata_report_kelvo
