#include "identity/os_version.h"

#include <cctype>

#include "identity/probe_constants.h"
#include "identity/probe_text.h"

namespace qzdata_report_kelvo {

namespace {

enum OsIndex {
    kGetFailed = 1,
    kNone = 2,
    kWindows95 = 3,
    kWindows98 = 4,
    kWindowsMe = 5,
    kWindowsNt4 = 6,
    kWindows2000 = 7,
    kWindowsXp = 8,
    kWindowsXp64 = 9,
    kWindows2003 = 10,
    kWindows2003R2 = 11,
    kWindowsVista = 12,
    kWindows7 = 13,
    kServerLonghorn = 14,
    kWindows8 = 15,
    kWindows8dot1 = 16,
    kWindows10 = 17,
};

constexpr uint32_t kPlatform9x = 1;
constexpr uint32_t kPlatformNt = 2;
constexpr uint8_t kWorkstation = 1;
constexpr uint16_t kArchitectureAmd64 = 9;

// A system that reports 6.2 may be newer and only say so in its own files.
OsIndex ClassifyRecentWindows(const port::WindowsVersionFacts& facts) {
    if (!facts.ntdllVersionKnown) {
        return kWindows8;
    }
    const uint32_t major = facts.ntdllProductVersionMs >> 16;
    const uint32_t minor = facts.ntdllProductVersionMs & 0xFFFFu;
    if (major == 10) {
        return kWindows10;
    }
    return major == 6 && minor == 3 ? kWindows8dot1 : kWindows8;
}

OsIndex ClassifyNt(const port::WindowsVersionFacts& facts) {
    const bool workstation = facts.extendedRecord && facts.productType == kWorkstation;
    if (facts.major >= 6) {
        if (!workstation) {
            return kServerLonghorn;
        }
        switch (facts.minor) {
            case 0:
                return kWindowsVista;
            case 1:
                return kWindows7;
            case 2:
                return ClassifyRecentWindows(facts);
            default:
                return kGetFailed;
        }
    }
    if (facts.major < 5) {
        return kWindowsNt4;
    }
    switch (facts.minor) {
        case 0:
            return kWindows2000;
        case 1:
            return kWindowsXp;
        case 2:
            if (facts.serverR2 != 0) {
                return kWindows2003R2;
            }
            return workstation && facts.processorArchitecture == kArchitectureAmd64 ? kWindowsXp64
                                                                                    : kWindows2003;
        default:
            return kGetFailed;
    }
}

OsIndex ClassifyIndex(const port::WindowsVersionFacts& facts) {
    if (!facts.versionKnown) {
        return kGetFailed;
    }
    if (facts.platformId == kPlatformNt) {
        return ClassifyNt(facts);
    }
    if (facts.platformId != kPlatform9x) {
        return kNone;
    }
    if (facts.major != 4) {
        return kGetFailed;
    }
    switch (facts.minor) {
        case 0:
            return kWindows95;
        case 10:
            return kWindows98;
        case 90:
            return kWindowsMe;
        default:
            return kGetFailed;
    }
}

// The run of digits at `position`, which moves past it; empty when there is none.
std::string TakeDigits(const std::string& text, size_t& position) {
    const size_t start = position;
    while (position < text.size() && std::isdigit(static_cast<unsigned char>(text[position]))) {
        ++position;
    }
    return text.substr(start, position - start);
}

}  // namespace

std::string ClassifyOs(const port::WindowsVersionFacts& facts) {
    return identity::kOsNames[ClassifyIndex(facts)];
}

std::string LinuxVersionName(const std::string& release) {
    size_t position = 0;
    const std::string major = TakeDigits(release, position);
    std::string minor;
    if (position < release.size() && release[position] == '.') {
        ++position;
        minor = TakeDigits(release, position);
    }
    if (major.empty() || minor.empty()) {
        return identity::kLinuxNamePrefix;
    }
    return identity::kLinuxNamePrefix + major + "." + minor;
}

std::string GetOsPlatformVersionText() {
    return NoThrowText([] {
        port::WindowsVersionFacts facts;
        if (port::QueryWindowsVersion(facts)) {
            return ClassifyOs(facts);
        }
        return LinuxVersionName(port::GetKernelRelease());
    });
}

}  // namespace qzdata_report_kelvo
