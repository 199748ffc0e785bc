#include "codec/base64.h"

#include <array>
#include <cstring>

#include "codec/constants.h"

namespace qzdata_report_kelvo {

namespace {

constexpr unsigned char kNotInAlphabet = 0xFF;

std::array<unsigned char, 128> BuildReverseTable() {
    std::array<unsigned char, 128> table;
    table.fill(kNotInAlphabet);
    for (size_t i = 0; i + 1 < sizeof(codec::kBase64Alphabet); ++i) {
        table[static_cast<unsigned char>(codec::kBase64Alphabet[i])] =
            static_cast<unsigned char>(i);
    }
    return table;
}

}  // namespace

int32_t Base64DecodedSize(int32_t length) {
    if (length <= 0) {
        return 0;
    }
    const int32_t rest = length % 4;
    return (length / 4) * 3 + (rest != 0 ? rest - 1 : 0);
}

int32_t Base64EncodedSize(int32_t count) {
    if (count <= 0) {
        return 0;
    }
    return static_cast<int32_t>((static_cast<int64_t>(count) + 2) / 3 * 4);
}

int Base64Decode(const char* text, int32_t length, unsigned char* output, int32_t outputSize) {
    static const std::array<unsigned char, 128> reverse = BuildReverseTable();
    if (text == nullptr || length <= 0 || output == nullptr ||
        outputSize < Base64DecodedSize(length)) {
        return 0;
    }
    std::memset(output, 0, static_cast<size_t>(outputSize));
    int written = 0;
    unsigned char group[4];
    int filled = 0;
    for (int32_t i = 0; i < length; ++i) {
        const auto c = static_cast<unsigned char>(text[i]);
        if (c == '=') {
            break;
        }
        if (c >= 128 || reverse[c] == kNotInAlphabet) {
            continue;
        }
        group[filled++] = reverse[c];
        if (filled == 4) {
            output[written++] = static_cast<unsigned char>((group[0] << 2) | (group[1] >> 4));
            output[written++] = static_cast<unsigned char>((group[1] << 4) | (group[2] >> 2));
            output[written++] = static_cast<unsigned char>((group[2] << 6) | group[3]);
            filled = 0;
        }
    }
    if (filled >= 2) {
        output[written++] = static_cast<unsigned char>((group[0] << 2) | (group[1] >> 4));
    }
    if (filled == 3) {
        output[written++] = static_cast<unsigned char>((group[1] << 4) | (group[2] >> 2));
    }
    return written;
}

int Base64Decode(const std::string& text, std::string& output) {
    output.clear();
    if (text.empty() || text.size() > static_cast<size_t>(INT32_MAX)) {
        return 0;
    }
    const auto length = static_cast<int32_t>(text.size());
    output.resize(static_cast<size_t>(Base64DecodedSize(length)));
    const int written =
        Base64Decode(text.data(), length, reinterpret_cast<unsigned char*>(&output[0]),
                     static_cast<int32_t>(output.size()));
    output.resize(static_cast<size_t>(written));
    return written;
}

}  // namespace qzdata_report_kelvo
