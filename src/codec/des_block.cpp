#include "codec/des_block.h"

#include <cstring>

#include "codec/constants.h"
#include "codec/crypto_library.h"

namespace qzdata_report_kelvo {

void DecodeDesBlock(const std::string& key, const std::string& cipher, std::string& plain) {
    if (cipher.empty() || key.size() < codec::kDesBlockSize) {
        return;
    }
    crypto::CryptoLibrary& library = crypto::CryptoLibrary::Instance();
    crypto::DesBlock keyBlock;
    std::memcpy(keyBlock, key.data(), sizeof(keyBlock));
    crypto::DesKeySchedule schedule{};
    library.DES_set_key_unchecked(&keyBlock, &schedule);

    for (size_t offset = 0; offset + codec::kDesBlockSize <= cipher.size();
         offset += codec::kDesBlockSize) {
        crypto::DesBlock in;
        crypto::DesBlock out;
        std::memcpy(in, cipher.data() + offset, sizeof(in));
        library.DES_ecb_encrypt(&in, &out, &schedule, crypto::kDecrypt);
        plain.append(reinterpret_cast<const char*>(out), sizeof(out));
    }

    if (plain.empty()) {
        return;
    }
    // Read as a signed character: bytes at or above 0x80 are never padding.
    const int pad = static_cast<signed char>(plain.back());
    if (pad < 1 || pad > static_cast<int>(codec::kDesBlockSize) ||
        static_cast<size_t>(pad) > plain.size()) {
        return;
    }
    for (size_t i = plain.size() - static_cast<size_t>(pad); i < plain.size(); ++i) {
        if (static_cast<signed char>(plain[i]) != pad) {
            return;
        }
    }
    plain.resize(plain.size() - static_cast<size_t>(pad));
}

}  // namespace qzdata_report_kelvo
