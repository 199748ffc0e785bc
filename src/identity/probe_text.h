// The text rules of the hardware probes: each turns the raw answers of a platform query into the
// exact bytes that a machine id digests, so one changed rule is a different id. Pure functions
// of their inputs; any thread. They throw only when memory runs out.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "port/hardware_info.h"

namespace qzdata_report_kelvo {

// "%.4x%.8x" of the low 16 bits of leaf 1's EAX and of leaf 1's EDX: 12 lower-case hex digits.
// Without CPUID the first value is the family shifted left by 8 and the second is 0; with a
// highest leaf below 1 both are 0.
std::string CpuIdText(const port::CpuIdAnswer& answer);

// The network facilities as the address texts ask them, one question at a time: the adapter
// list is asked only when the numbered adapters cannot be enumerated.
class NetworkAnswers {
  public:
    virtual ~NetworkAnswers() = default;
    // The LANA numbers in list order; false when the enumeration fails or is unavailable.
    virtual bool EnumerateLanas(std::vector<uint32_t>& lanas) = 0;
    // The adapter address behind `lana`; false when its status query fails.
    virtual bool QueryLanaAddress(uint32_t lana, std::array<uint8_t, 6>& address) = 0;
    // Every adapter of the adapter list, in its order; false when there is no list.
    virtual bool ListAdapters(std::vector<port::NetworkAdapter>& adapters) = 0;
};

enum class AddressTextRule {
    kFirst,   // numbers modulo 100, the LANA texts in list order
    kSecond,  // numbers whole, the LANA texts sorted ascending
};

// For each LANA, "%02u" of its number and its six address bytes as "%02X" (a LANA whose status
// fails adds nothing). When the enumeration fails, the adapter list instead: for each adapter
// "%02u" of its index and every byte of its address, in list order under both rules. An
// enumeration that succeeds with no LANA gives an empty text.
std::string NetworkAddressText(NetworkAnswers& answers, AddressTextRule rule);

// Collects, disk by disk while at least 20 bytes of a 1024-byte buffer are free, the serial
// (20 bytes) and then the model (40 bytes), each up to a zero byte and without trailing spaces;
// the buffer never grows past its limit. A disk with identify data gives its words 10 to 19 and
// 27 to 46, bytes as they come (each pair swapped); else its serial and model texts, cut to the
// same widths. The text is the buffer read backwards from its last byte down to its second,
// spaces left out.
std::string DiskIdentityText(const std::vector<port::DiskIdentity>& disks);

// The firmware date: with a memory view, the string (up to 127 bytes, ended by a zero byte) at
// the first of its places whose test it passes: not empty, every byte printable ASCII, and the
// place's mark at its two positions. Without a view, the date text (as far as such a string
// goes) when it passes the test of any place. Empty when nothing passes.
std::string FirmwareDateText(const port::FirmwareAnswer& answer);

// Keeps digits and capitals, turns 'a' to 'z' into capitals and drops every other byte.
std::string FilterWmiValue(const std::string& value);

// A management object's property values, in the order asked.
using WmiRow = std::vector<std::string>;

// Each row's filtered values joined; the rows that are not empty, sorted ascending by bytes and
// joined with nothing.
std::string JoinWmiRows(const std::vector<WmiRow>& rows);

// Two upper-case hex digits per byte.
std::string HexBytes(const std::vector<uint8_t>& bytes);

// 32 lower-case hex digits of the MD5 of `text`; empty for an empty text.
std::string DigestMachineText(const std::string& text);

// `body()`, or an empty text when it throws: a probe never fails outwardly.
template <class Body>
std::string NoThrowText(Body&& body) noexcept {
    try {
        return body();
    } catch (...) {
        return std::string();
    }
}

}  // namespace qzdata_report_kelvo
