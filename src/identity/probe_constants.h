// Fixed values of the hardware probes and of the operating system's name. Every one of them
// shapes bytes that are digested into a machine id or sent as they are.
#pragma once

#include <cstddef>
#include <cstdint>

namespace qzdata_report_kelvo {
namespace identity {

// Disk identity: the buffer the identify fields are collected in, and the room a drive needs
// in it to be read at all.
inline constexpr size_t kDiskBufferLimit = 1024;
inline constexpr size_t kDiskRoomPerDrive = 20;
// Fields of the 512-byte ATA identify data: serial in words 10 to 19, model in words 27 to 46.
inline constexpr size_t kIdentifySerialOffset = 20;
inline constexpr size_t kIdentifySerialBytes = 20;
inline constexpr size_t kIdentifyModelOffset = 54;
inline constexpr size_t kIdentifyModelBytes = 40;

// Firmware date: the places of a memory view (mapped from physical 0xF0000) where a date may
// stand, in the order they are tried, and the pattern a string there must show: `mark` at the
// two positions.
struct FirmwarePlace {
    size_t offset;
    char mark;
    size_t first;
    size_t second;
};
inline constexpr FirmwarePlace kFirmwarePlaces[] = {{0xEC71, '/', 2, 5},
                                                    {0xF478, '-', 2, 7},
                                                    {0x6577, '.', 7, 11},
                                                    {0x7196, '.', 7, 11},
                                                    {0x7550, '.', 7, 11}};
inline constexpr size_t kFirmwareStringBytes = 127;

// How long the first caller of the management serials waits for the probe thread.
inline constexpr uint32_t kWmiSerialsBoundMs = 3000;

// Names of the operating system by index; the spellings, "WindowsnNT4" among them, are sent as
// they are. Index 0 is never chosen, and shares its text with index 1.
inline constexpr const char* kOsNames[] = {
    "WindowsGetFailed", "WindowsGetFailed", "WindowsNone",  "Windows95", "Windows98",
    "WindowsMe",        "WindowsnNT4",      "Windows2000",  "WindowsXp", "WindowsXp64",
    "Windows2003",      "Windows2003R2",    "WindowsVista", "Windows7",  "WindowsServerLonghorn",
    "Windows8",         "Windows8dot1",     "Windows10"};
inline constexpr char kLinuxNamePrefix[] = "Linux";

}  // namespace identity
}  // namespace qzdata_report_kelvo
