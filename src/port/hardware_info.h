// Hardware seam: the raw answers of the platform's hardware and version queries, with no text
// rule applied. The identity subsystem turns them into the texts that machine ids are made of.
// Every function may be called from any thread, never throws for want of an answer, and reads
// a value that needs privileges the process lacks as empty.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace qzdata_report_kelvo {
namespace port {

// What the CPUID instruction says about leaf 1.
struct CpuIdAnswer {
    bool hasCpuId = false;
    uint32_t family = 0;       // the processor family, meaningful only without CPUID
    uint32_t highestLeaf = 0;  // the highest basic leaf
    uint32_t leaf1Eax = 0;     // leaf 1, when highestLeaf is at least 1
    uint32_t leaf1Edx = 0;
};

CpuIdAnswer QueryCpuId();

// A network adapter with a link-layer address. The index is the platform's own number for the
// adapter, which the address texts print.
struct NetworkAdapter {
    uint32_t index = 0;
    std::vector<uint8_t> address;
};

// The adapters that stand for the platform's numbered adapters (LANA numbers): the non-loopback
// ones with a 6-byte address, in index order. False when the adapters cannot be listed at all;
// true with an empty list when none qualifies.
bool ListNetworkInterfaces(std::vector<NetworkAdapter>& adapters);

// The platform's adapter list, the fallback when the numbered adapters cannot be listed: the
// same selection, from another source.
bool ListLinkLayerAdapters(std::vector<NetworkAdapter>& adapters);

// A disk that is not virtual. Where the platform reads the drive's 512-byte ATA identify data,
// `identify` holds it; otherwise the serial and model are the texts the platform reports. None
// of them is trimmed.
struct DiskIdentity {
    std::string identify;
    std::string serial;
    std::string model;
};

// In a fixed order (by the platform's drive number or disk name); empty when none is found.
std::vector<DiskIdentity> ListDisks();

// Where the firmware tells its release date: a view of its memory area, or the date as a text
// where the platform reports it so. Both empty when neither can be had.
struct FirmwareAnswer {
    std::string memoryView;  // physical memory from 0xF0000, 0xFFFF bytes
    std::string dateText;
};

FirmwareAnswer ReadFirmware();

// A session with the management service for the calling thread: false when the service cannot
// be reached, and then Close must not be called. On Linux the service is the kernel's device
// tree (sysfs), and it answers whenever that is mounted. The queries
// below need an open session on the calling thread.
bool OpenManagementSession();
void CloseManagementSession();

// Tables of management objects whose rows the first-generation id reads, and their properties.
enum class ManagementTable {
    kDiskDrives,  // per IDE or SCSI disk: model, serial number
    kBios,        // the firmware: manufacturer, serial number (of the system)
    kBaseBoard,   // the system board: manufacturer, product, serial number
};

// Replaces `rows` with one row per object, the values of the table's properties in the order
// above (a value that is not a text, or cannot be read, is empty).
void QueryManagementRows(ManagementTable table, std::vector<std::vector<std::string>>& rows);

// Replaces `addresses` with the permanent address of each network adapter on the PCI bus.
void QueryPciAdapterAddresses(std::vector<std::vector<uint8_t>>& addresses);

// The facts of the management service that the second-generation id asks for, one query each.
enum class SerialFact {
    kVolumeSerial,    // the serial of each logical volume
    kSystemSerial,    // the serial of the installed operating system
    kDiskDeviceIds,   // the device id of each disk
    kSoundDeviceIds,  // the device id of each sound device
    kVideoDeviceIds,  // the device id of each video controller
};

// Replaces `values` with the text values of `fact`, one per object that has one, in the
// service's order, in the system's narrow character set (a character it cannot hold becomes
// '?').
void QuerySerialFact(SerialFact fact, std::vector<std::string>& values);

// The operating system kernel's release text (for example "6.8.0-45-generic"); empty when
// unknown.
std::string GetKernelRelease();

// What the Windows version queries answer. Each flag tells whether a query succeeded; a field
// whose query failed stays 0.
struct WindowsVersionFacts {
    bool versionKnown = false;    // the version query succeeded with either record
    bool extendedRecord = false;  // ... with the extended record, which has the product type
    uint32_t platformId = 0;
    uint32_t major = 0;
    uint32_t minor = 0;
    uint8_t productType = 0;             // 1: workstation
    uint16_t processorArchitecture = 0;  // of the native system; 9: x86-64
    int serverR2 = 0;                    // the SM_SERVERR2 system metric
    bool ntdllVersionKnown = false;      // the system's ntdll product version could be read
    uint32_t ntdllProductVersionMs = 0;  // its high 32 bits: major << 16 | minor
};

// Fills `facts` and returns true on Windows; returns false on every other platform.
bool QueryWindowsVersion(WindowsVersionFacts& facts);

}  // namespace port
}  // namespace qzdata_report_kelvo
