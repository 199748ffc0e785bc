#include "codec/aes_blob_cipher.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <vector>

#include "codec/base64.h"
#include "codec/constants.h"
#include "codec/text.h"

namespace qzdata_report_kelvo {

CAesBlobCipher::CAesBlobCipher(bool base64Text) : keySchedule(), digest(), base64Text(base64Text) {}

void CAesBlobCipher::SetPassString(const std::string& pass) {
    passString = pass;
    crypto::CryptoLibrary& library = crypto::CryptoLibrary::Instance();
    // Without a digest method there is nothing to digest with; the key stays as it was.
    if (const crypto::EvpMd* md5 = library.EVP_md5()) {
        library.EVP_Digest(passString.data(), passString.size(), digest, nullptr, md5, nullptr);
    }
}

void CAesBlobCipher::SetDirection(uint32_t direction) {
    crypto::CryptoLibrary& library = crypto::CryptoLibrary::Instance();
    if (direction == static_cast<uint32_t>(crypto::kEncrypt)) {
        library.AES_set_encrypt_key(digest, codec::kAesKeyBits, &keySchedule);
    } else {
        library.AES_set_decrypt_key(digest, codec::kAesKeyBits, &keySchedule);
    }
}

AesBlobPlain CAesBlobCipher::Decode(const std::string& blob) {
    AesBlobPlain result;
    if (blob.size() < codec::kBlobLengthDigits) {
        return result;
    }
    const std::string lengthField = blob.substr(0, codec::kBlobLengthDigits);
    int scanned = 0;
    char trailing = 0;
    if (std::sscanf(lengthField.c_str(), "%d%c", &scanned, &trailing) != 1) {
        return result;
    }
    const int64_t cipherLength = scanned <= 0
                                     ? 0
                                     : (static_cast<int64_t>(scanned) + codec::kAesBlockSize - 1) /
                                           codec::kAesBlockSize * codec::kAesBlockSize;
    const size_t cipherText = blob.size() - codec::kBlobLengthDigits;
    const int64_t expected =
        base64Text ? Base64EncodedSize(static_cast<int32_t>(cipherLength)) : 2 * cipherLength;
    if (static_cast<int64_t>(cipherText) != expected) {
        return result;
    }

    // The scan accepted signs and blanks and stopped at a NUL byte; the length itself is read
    // digit by digit, any other byte refuses the blob, and only a value that fits the cipher
    // text is used.
    int64_t length = 0;
    for (char c : lengthField) {
        if (c < '0' || c > '9') {
            return result;
        }
        length = length * 10 + (c - '0');
    }
    if (length < 0 || length > cipherLength) {
        return result;
    }

    std::vector<unsigned char> input(static_cast<size_t>(cipherLength));
    size_t decoded = 0;
    if (base64Text) {
        std::string bytes;
        Base64Decode(blob.substr(codec::kBlobLengthDigits), bytes);
        decoded = bytes.size() < input.size() ? bytes.size() : input.size();
        std::copy_n(bytes.begin(), decoded, input.begin());
    } else {
        const char* hex = blob.data() + codec::kBlobLengthDigits;
        for (size_t i = 0; i < input.size(); ++i) {
            // The blob's producer writes lower-case digits only.
            input[i] = static_cast<unsigned char>(
                text::HexDigitValue(hex[2 * i], text::HexInput::kLowerUnchecked) * 16 +
                text::HexDigitValue(hex[2 * i + 1], text::HexInput::kLowerUnchecked));
        }
        decoded = input.size();
    }
    if (decoded == 0 && length == 0) {
        return result;
    }

    unsigned char vector[sizeof(digest)];
    std::memcpy(vector, digest, sizeof(digest));
    std::vector<unsigned char> output(input.size());
    crypto::CryptoLibrary::Instance().AES_cbc_encrypt(input.data(), output.data(), input.size(),
                                                      &keySchedule, vector, crypto::kDecrypt);
    result.plain.assign(reinterpret_cast<const char*>(output.data()), static_cast<size_t>(length));
    result.plainLength = static_cast<int32_t>(length);
    result.cipherLength = static_cast<int32_t>(cipherLength);
    return result;
}

}  // namespace qzdata_report_kelvo
