#include "identity/probe_text.h"

#include <algorithm>
#include <cstdio>

#include "codec/md5.h"
#include "identity/probe_constants.h"

namespace qzdata_report_kelvo {

namespace {

std::string NumberText(uint32_t number, AddressTextRule rule) {
    char text[16];
    std::snprintf(text, sizeof text, "%02u",
                  rule == AddressTextRule::kFirst ? number % 100 : number);
    return text;
}

std::string Joined(const std::vector<std::string>& texts) {
    std::string joined;
    for (const std::string& text : texts) {
        joined += text;
    }
    return joined;
}

void AppendDiskField(std::string& buffer, const std::string& raw, size_t width) {
    std::string field = raw.substr(0, width);
    field.resize(std::min(field.size(), field.find('\0')));
    const size_t last = field.find_last_not_of(' ');
    field.resize(last == std::string::npos ? 0 : last + 1);
    buffer.append(field, 0, identity::kDiskBufferLimit - buffer.size());
}

std::string IdentifyField(const std::string& identify, size_t offset) {
    return offset < identify.size() ? identify.substr(offset) : std::string();
}

// The string at `from`: at most 127 bytes, ended by the first zero.
std::string FirmwareString(const std::string& bytes, size_t from) {
    if (from >= bytes.size()) {
        return std::string();
    }
    std::string text = bytes.substr(from, identity::kFirmwareStringBytes);
    text.resize(std::min(text.size(), text.find('\0')));
    return text;
}

bool PassesFirmwareTest(const std::string& text, const identity::FirmwarePlace& place) {
    if (text.size() <= std::max(place.first, place.second) || text[place.first] != place.mark ||
        text[place.second] != place.mark) {
        return false;
    }
    return std::all_of(text.begin(), text.end(), [](char c) { return c >= 0x20 && c <= 0x7E; });
}

}  // namespace

std::string CpuIdText(const port::CpuIdAnswer& answer) {
    uint32_t signature = 0;
    uint32_t features = 0;
    if (!answer.hasCpuId) {
        signature = answer.family << 8;
    } else if (answer.highestLeaf >= 1) {
        signature = answer.leaf1Eax;
        features = answer.leaf1Edx;
    }
    char text[16];
    std::snprintf(text, sizeof text, "%.4x%.8x", signature & 0xFFFFu, features);
    return text;
}

std::string NetworkAddressText(NetworkAnswers& answers, AddressTextRule rule) {
    std::vector<uint32_t> lanas;
    if (answers.EnumerateLanas(lanas)) {
        std::vector<std::string> texts;
        for (uint32_t lana : lanas) {
            std::array<uint8_t, 6> address;
            if (answers.QueryLanaAddress(lana, address)) {
                texts.push_back(NumberText(lana, rule) +
                                HexBytes(std::vector<uint8_t>(address.begin(), address.end())));
            }
        }
        if (rule == AddressTextRule::kSecond) {
            std::sort(texts.begin(), texts.end());
        }
        return Joined(texts);
    }
    std::string text;
    std::vector<port::NetworkAdapter> adapters;
    if (answers.ListAdapters(adapters)) {
        for (const port::NetworkAdapter& adapter : adapters) {
            text += NumberText(adapter.index, rule) + HexBytes(adapter.address);
        }
    }
    return text;
}

std::string DiskIdentityText(const std::vector<port::DiskIdentity>& disks) {
    std::string buffer;
    for (const port::DiskIdentity& disk : disks) {
        if (identity::kDiskBufferLimit - buffer.size() < identity::kDiskRoomPerDrive) {
            break;
        }
        const bool fromIdentify = !disk.identify.empty();
        AppendDiskField(buffer,
                        fromIdentify ? IdentifyField(disk.identify, identity::kIdentifySerialOffset)
                                     : disk.serial,
                        identity::kIdentifySerialBytes);
        AppendDiskField(buffer,
                        fromIdentify ? IdentifyField(disk.identify, identity::kIdentifyModelOffset)
                                     : disk.model,
                        identity::kIdentifyModelBytes);
    }
    // The first byte is left out, as in the ids already kept on machines.
    std::string text;
    for (size_t i = buffer.size(); i-- > 1;) {
        if (buffer[i] != ' ') {
            text += buffer[i];
        }
    }
    return text;
}

std::string FirmwareDateText(const port::FirmwareAnswer& answer) {
    const std::string& view = answer.memoryView;
    const std::string date = FirmwareString(answer.dateText, 0);
    for (const identity::FirmwarePlace& place : identity::kFirmwarePlaces) {
        const std::string text = view.empty() ? date : FirmwareString(view, place.offset);
        if (PassesFirmwareTest(text, place)) {
            return text;
        }
    }
    return std::string();
}

std::string FilterWmiValue(const std::string& value) {
    std::string kept;
    for (char c : value) {
        if ((c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z')) {
            kept += c;
        } else if (c >= 'a' && c <= 'z') {
            kept += static_cast<char>(c - 'a' + 'A');
        }
    }
    return kept;
}

std::string JoinWmiRows(const std::vector<WmiRow>& rows) {
    std::vector<std::string> texts;
    for (const WmiRow& row : rows) {
        std::string text;
        for (const std::string& value : row) {
            text += FilterWmiValue(value);
        }
        if (!text.empty()) {
            texts.push_back(text);
        }
    }
    std::sort(texts.begin(), texts.end());
    return Joined(texts);
}

std::string HexBytes(const std::vector<uint8_t>& bytes) {
    std::string text;
    char digits[3];
    for (uint8_t byte : bytes) {
        std::snprintf(digits, sizeof digits, "%02X", byte);
        text += digits;
    }
    return text;
}

std::string DigestMachineText(const std::string& text) {
    if (text.empty()) {
        return std::string();
    }
    Md5Context md5;
    md5.Start(text);
    return md5.HexDigest();
}

}  // namespace qzdata_report_kelvo
