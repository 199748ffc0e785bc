#include "codec/crypto_library.h"

#include <cstring>

#include "port/dynamic_library.h"

namespace qzdata_report_kelvo {
namespace crypto {

CryptoLibrary& CryptoLibrary::Instance() {
    // Never destroyed: wrappers may still be called from threads that outlive static teardown.
    static CryptoLibrary* instance = new CryptoLibrary();
    return *instance;
}

CryptoLibrary::CryptoLibrary()
    : library(port::CryptoLibraryNames),
      evpMd5(library, "EVP_md5"),
      evpDigest(library, "EVP_Digest"),
      aesSetDecryptKey(library, "AES_set_decrypt_key"),
      aesSetEncryptKey(library, "AES_set_encrypt_key"),
      aesCbcEncrypt(library, "AES_cbc_encrypt"),
      desSetKeyUnchecked(library, "DES_set_key_unchecked"),
      desEcbEncrypt(library, "DES_ecb_encrypt") {}

const EvpMd* CryptoLibrary::EVP_md5() {
    auto function = evpMd5.get();
    return function != nullptr ? function() : nullptr;
}

int CryptoLibrary::EVP_Digest(const void* data, size_t size, unsigned char* digest,
                              unsigned int* digestSize, const EvpMd* type, void* engine) {
    auto function = evpDigest.get();
    return function != nullptr ? function(data, size, digest, digestSize, type, engine) : 0;
}

int CryptoLibrary::AES_set_decrypt_key(const unsigned char* key, int bits, AesKey* schedule) {
    auto function = aesSetDecryptKey.get();
    return function != nullptr ? function(key, bits, schedule) : -1;
}

int CryptoLibrary::AES_set_encrypt_key(const unsigned char* key, int bits, AesKey* schedule) {
    auto function = aesSetEncryptKey.get();
    return function != nullptr ? function(key, bits, schedule) : -1;
}

void CryptoLibrary::AES_cbc_encrypt(const unsigned char* input, unsigned char* output,
                                    size_t length, const AesKey* schedule, unsigned char* vector,
                                    int direction) {
    if (auto function = aesCbcEncrypt.get()) {
        function(input, output, length, schedule, vector, direction);
    } else if (length > 0) {
        // A recognisable mark, so that a blob "deciphered" without the library fails to parse.
        output[0] = 0xCD;
    }
}

void CryptoLibrary::DES_set_key_unchecked(const DesBlock* key, DesKeySchedule* schedule) {
    if (auto function = desSetKeyUnchecked.get()) {
        function(key, schedule);
    }
}

void CryptoLibrary::DES_ecb_encrypt(const DesBlock* input, DesBlock* output,
                                    const DesKeySchedule* schedule, int direction) {
    if (auto function = desEcbEncrypt.get()) {
        function(input, output, schedule, direction);
    } else if (input != output) {
        std::memcpy(*output, *input, sizeof(DesBlock));
    }
}

void CryptoLibrary::OverrideNamesForTesting(std::vector<std::string> fileNames) {
    library.OverrideNamesForTesting(fileNames.empty() ? port::CryptoLibraryNames()
                                                      : std::move(fileNames));
}

}  // namespace crypto
}  // namespace qzdata_report_kelvo
