// Base64 decoding, on any text and on encoded bytes:
//  - the string and the buffer forms agree, and the result fits Base64DecodedSize;
//  - a buffer below that size is refused without a write;
//  - decoding the standard encoding of any bytes gives them back, also with line breaks
//    inserted (bytes outside the alphabet are skipped) and after the padding is cut.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "codec/base64.h"
#include "fuzz_support.h"

namespace {

using qzdata_report_kelvo::Base64Decode;
using qzdata_report_kelvo::Base64DecodedSize;
using qzdata_report_kelvo::Base64EncodedSize;

void CheckForms(const std::string& text) {
    std::string decoded = "stale";
    const int count = Base64Decode(text, decoded);
    QZ_FUZZ_CHECK(count >= 0 && static_cast<size_t>(count) == decoded.size());
    const int32_t bound = Base64DecodedSize(static_cast<int32_t>(text.size()));
    QZ_FUZZ_CHECK(count <= bound);

    std::vector<unsigned char> buffer(static_cast<size_t>(bound) + 1, 0xA5);
    const int inBuffer = Base64Decode(text.data(), static_cast<int32_t>(text.size()),
                                      buffer.data(), bound);
    QZ_FUZZ_CHECK(inBuffer == count);
    QZ_FUZZ_CHECK(std::string(buffer.begin(), buffer.begin() + inBuffer) == decoded);
    QZ_FUZZ_CHECK(buffer[static_cast<size_t>(bound)] == 0xA5);
    if (bound > 0) {
        std::vector<unsigned char> small(static_cast<size_t>(bound), 0xA5);
        QZ_FUZZ_CHECK(Base64Decode(text.data(), static_cast<int32_t>(text.size()), small.data(),
                                   bound - 1) == 0);
        for (unsigned char byte : small) {
            QZ_FUZZ_CHECK(byte == 0xA5);
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    CheckForms(bytes);

    const std::string encoded = qz_fuzz::Base64Encode(bytes);
    QZ_FUZZ_CHECK(static_cast<int32_t>(encoded.size()) ==
                  Base64EncodedSize(static_cast<int32_t>(size)));
    std::string wrapped;
    for (size_t i = 0; i < encoded.size(); ++i) {
        wrapped += encoded[i];
        if (i % 7 == 6) {
            wrapped += "\r\n";
        }
    }
    const std::string& wrappedText = wrapped;
    const std::string unpadded = encoded.substr(0, encoded.find('='));
    for (const std::string* text : {&encoded, &wrappedText, &unpadded}) {
        std::string decoded;
        QZ_FUZZ_CHECK(Base64Decode(*text, decoded) == static_cast<int>(size));
        QZ_FUZZ_CHECK(decoded == bytes);
        CheckForms(*text);
    }
    return 0;
}
