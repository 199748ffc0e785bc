#include "port/hardware_info.h"

#include <dirent.h>
#include <fcntl.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netpacket/packet.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#if defined(__i386__) || defined(__x86_64__)
#include <cpuid.h>
#endif

namespace qzdata_report_kelvo {
namespace port {

namespace {

constexpr size_t kMaxValueBytes = 4096;
constexpr char kNetClass[] = "/sys/class/net/";
constexpr char kBlockClass[] = "/sys/block/";
constexpr char kDmiFolder[] = "/sys/class/dmi/id/";

// The file's text without the line end the kernel adds; empty when it cannot be read.
std::string ReadValue(const std::string& path) {
    std::string text;
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        return text;
    }
    char buffer[kMaxValueBytes];
    const ssize_t got = ::read(fd, buffer, sizeof buffer);
    ::close(fd);
    if (got > 0) {
        text.assign(buffer, static_cast<size_t>(got));
    }
    if (!text.empty() && text.back() == '\n') {
        text.pop_back();
    }
    return text;
}

// The entries of `folder` in name order, without "." and "..".
bool ListFolder(const std::string& folder, std::vector<std::string>& names) {
    names.clear();
    DIR* dir = ::opendir(folder.c_str());
    if (dir == nullptr) {
        return false;
    }
    while (const dirent* entry = ::readdir(dir)) {
        const std::string name = entry->d_name;
        if (name != "." && name != "..") {
            names.push_back(name);
        }
    }
    ::closedir(dir);
    std::sort(names.begin(), names.end());
    return true;
}

std::string RealPath(const std::string& path) {
    std::string resolved;
    if (char* target = ::realpath(path.c_str(), nullptr)) {
        resolved = target;
        std::free(target);
    }
    return resolved;
}

bool ParseSixByteAddress(const std::string& text, std::vector<uint8_t>& address) {
    unsigned char b[6];
    int consumed = 0;
    if (std::sscanf(text.c_str(), "%2hhx:%2hhx:%2hhx:%2hhx:%2hhx:%2hhx%n", &b[0], &b[1], &b[2],
                    &b[3], &b[4], &b[5], &consumed) != 6 ||
        static_cast<size_t>(consumed) != text.size()) {
        return false;
    }
    address.assign(b, b + 6);
    return true;
}

void SortByIndex(std::vector<NetworkAdapter>& adapters) {
    std::sort(adapters.begin(), adapters.end(),
              [](const NetworkAdapter& a, const NetworkAdapter& b) { return a.index < b.index; });
}

struct SysInterface {
    NetworkAdapter adapter;
    bool onPci = false;
};

// The non-loopback interfaces of /sys/class/net with a 6-byte address, in index order.
bool ReadSysInterfaces(std::vector<SysInterface>& interfaces) {
    interfaces.clear();
    std::vector<std::string> names;
    if (!ListFolder(kNetClass, names)) {
        return false;
    }
    for (const std::string& name : names) {
        const std::string folder = kNetClass + name + "/";
        // Virtual interfaces (bridges, container links, ifb) come and go, often with random
        // addresses: counting them would change the machine's text from one boot to the next.
        if (RealPath(kNetClass + name).find("/devices/virtual/") != std::string::npos) {
            continue;
        }
        const unsigned long flags = std::strtoul(ReadValue(folder + "flags").c_str(), nullptr, 16);
        SysInterface entry;
        entry.adapter.index = ::if_nametoindex(name.c_str());
        if ((flags & IFF_LOOPBACK) != 0 || entry.adapter.index == 0 ||
            !ParseSixByteAddress(ReadValue(folder + "address"), entry.adapter.address)) {
            continue;
        }
        const std::string bus = RealPath(folder + "device/subsystem");
        entry.onPci = bus.size() >= 4 && bus.compare(bus.size() - 4, 4, "/pci") == 0;
        interfaces.push_back(entry);
    }
    std::sort(interfaces.begin(), interfaces.end(),
              [](const SysInterface& a, const SysInterface& b) {
                  return a.adapter.index < b.adapter.index;
              });
    return true;
}

// The sysfs folders of the disks that are not virtual, by disk name.
std::vector<std::string> DiskFolders() {
    std::vector<std::string> names, folders;
    ListFolder(kBlockClass, names);
    for (const std::string& name : names) {
        const std::string folder = RealPath(kBlockClass + name);
        if (!folder.empty() && folder.find("/devices/virtual/") == std::string::npos) {
            folders.push_back(folder);
        }
    }
    return folders;
}

std::string ReadDmi(const char* name) {
    return ReadValue(std::string(kDmiFolder) + name);
}

// The device paths of the numbered cards ("card0", "card1", ...) of a device class; the
// connectors and controls listed beside them are not devices of their own.
std::vector<std::string> CardDevicePaths(const std::string& classFolder) {
    std::vector<std::string> names, paths;
    ListFolder(classFolder, names);
    for (const std::string& name : names) {
        if (name.size() > 4 && name.compare(0, 4, "card") == 0 &&
            name.find_first_not_of("0123456789", 4) == std::string::npos) {
            const std::string path = RealPath(classFolder + name + "/device");
            if (!path.empty()) {
                paths.push_back(path);
            }
        }
    }
    return paths;
}

// The UUIDs of the file systems whose device holds the root file system.
std::vector<std::string> RootVolumeUuids() {
    std::vector<std::string> names, uuids;
    struct stat root;
    if (::stat("/", &root) != 0 || !ListFolder("/dev/disk/by-uuid", names)) {
        return uuids;
    }
    for (const std::string& name : names) {
        struct stat device;
        if (::stat(("/dev/disk/by-uuid/" + name).c_str(), &device) == 0 &&
            S_ISBLK(device.st_mode) && device.st_rdev == root.st_dev) {
            uuids.push_back(name);
        }
    }
    return uuids;
}

}  // namespace

CpuIdAnswer QueryCpuId() {
    CpuIdAnswer answer;
#if defined(__i386__) || defined(__x86_64__)
    answer.highestLeaf = __get_cpuid_max(0, nullptr);
    // __get_cpuid_max answers 0 for a processor without the instruction, and Linux runs on no
    // processor older than the 486 (family 4).
    answer.hasCpuId = answer.highestLeaf != 0;
    answer.family = 4;
    if (answer.highestLeaf >= 1) {
        unsigned int ebx = 0, ecx = 0;
        __cpuid(1, answer.leaf1Eax, ebx, ecx, answer.leaf1Edx);
    }
#endif
    return answer;
}

bool ListNetworkInterfaces(std::vector<NetworkAdapter>& adapters) {
    adapters.clear();
    std::vector<SysInterface> interfaces;
    if (!ReadSysInterfaces(interfaces)) {
        return false;
    }
    for (const SysInterface& entry : interfaces) {
        adapters.push_back(entry.adapter);
    }
    return true;
}

bool ListLinkLayerAdapters(std::vector<NetworkAdapter>& adapters) {
    adapters.clear();
    ifaddrs* list = nullptr;
    if (::getifaddrs(&list) != 0) {
        return false;
    }
    for (const ifaddrs* entry = list; entry != nullptr; entry = entry->ifa_next) {
        if (entry->ifa_addr == nullptr || entry->ifa_addr->sa_family != AF_PACKET ||
            (entry->ifa_flags & IFF_LOOPBACK) != 0) {
            continue;
        }
        const auto* link = reinterpret_cast<const sockaddr_ll*>(entry->ifa_addr);
        if (link->sll_halen == 6) {
            NetworkAdapter adapter;
            adapter.index = static_cast<uint32_t>(link->sll_ifindex);
            adapter.address.assign(link->sll_addr, link->sll_addr + 6);
            adapters.push_back(adapter);
        }
    }
    ::freeifaddrs(list);
    SortByIndex(adapters);
    return true;
}

std::vector<DiskIdentity> ListDisks() {
    std::vector<DiskIdentity> disks;
    for (const std::string& folder : DiskFolders()) {
        DiskIdentity disk;
        disk.serial = ReadValue(folder + "/device/serial");
        if (disk.serial.empty()) {
            disk.serial = ReadValue(folder + "/serial");  // virtio disks report it there
        }
        disk.model = ReadValue(folder + "/device/model");
        disks.push_back(disk);
    }
    return disks;
}

FirmwareAnswer ReadFirmware() {
    FirmwareAnswer answer;
    answer.dateText = ReadDmi("bios_date");
    return answer;
}

// The kernel's device tree plays the management service: it answers whenever it is mounted,
// also on machines without firmware identity (many virtual ones), whose facts then read empty.
bool OpenManagementSession() {
    std::vector<std::string> names;
    return ListFolder(kNetClass, names);
}

void CloseManagementSession() {}

void QueryManagementRows(ManagementTable table, std::vector<std::vector<std::string>>& rows) {
    rows.clear();
    switch (table) {
        case ManagementTable::kDiskDrives:
            for (const DiskIdentity& disk : ListDisks()) {
                rows.push_back({disk.model, disk.serial});
            }
            break;
        case ManagementTable::kBios:
            rows.push_back({ReadDmi("bios_vendor"), ReadDmi("product_serial")});
            break;
        case ManagementTable::kBaseBoard:
            rows.push_back(
                {ReadDmi("board_vendor"), ReadDmi("board_name"), ReadDmi("board_serial")});
            break;
    }
}

// The kernel keeps no permanent address apart in sysfs; the current one stands for it.
void QueryPciAdapterAddresses(std::vector<std::vector<uint8_t>>& addresses) {
    addresses.clear();
    std::vector<SysInterface> interfaces;
    ReadSysInterfaces(interfaces);
    for (const SysInterface& entry : interfaces) {
        if (entry.onPci) {
            addresses.push_back(entry.adapter.address);
        }
    }
}

void QuerySerialFact(SerialFact fact, std::vector<std::string>& values) {
    values.clear();
    switch (fact) {
        case SerialFact::kVolumeSerial:
            values = RootVolumeUuids();
            break;
        case SerialFact::kSystemSerial: {
            const std::string id = ReadValue("/etc/machine-id");
            if (!id.empty()) {
                values.push_back(id);
            }
            break;
        }
        case SerialFact::kDiskDeviceIds:
            for (const std::string& folder : DiskFolders()) {
                const std::string path = RealPath(folder + "/device");
                if (!path.empty()) {
                    values.push_back(path);
                }
            }
            break;
        case SerialFact::kSoundDeviceIds:
            values = CardDevicePaths("/sys/class/sound/");
            break;
        case SerialFact::kVideoDeviceIds:
            values = CardDevicePaths("/sys/class/drm/");
            break;
    }
}

std::string GetKernelRelease() {
    utsname names;
    return ::uname(&names) == 0 ? std::string(names.release) : std::string();
}

bool QueryWindowsVersion(WindowsVersionFacts&) {
    return false;
}

}  // namespace port
}  // namespace qzdata_report_kelvo
