// Base64 decoding: any text decodes within Base64DecodedSize, and the standard encoding of any
// bytes decodes to them, also with line breaks inserted and with the padding cut off.
#include "codec/base64.h"
#include "fuzz_support.h"

using qzdata_report_kelvo::Base64Decode;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    std::string decoded;
    const int count = Base64Decode(bytes, decoded);
    QZ_FUZZ_CHECK(count == static_cast<int>(decoded.size()) &&
                  count <= qzdata_report_kelvo::Base64DecodedSize(static_cast<int32_t>(size)));

    const std::string encoded = qz_fuzz::Base64Encode(bytes);
    std::string wrapped;
    for (size_t i = 0; i < encoded.size(); ++i)
        wrapped += encoded[i] + std::string(i % 7 == 6 ? "\r\n" : "");
    for (const std::string& text : {encoded, wrapped, encoded.substr(0, encoded.find('='))})
        QZ_FUZZ_CHECK(Base64Decode(text, decoded) == static_cast<int>(size) && decoded == bytes);
    return 0;
}
