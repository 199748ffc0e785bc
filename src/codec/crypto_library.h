// Run-time binding of the crypto library (libcrypto). The library is never linked: each
// function is looked up on its first call and, when it or the library is missing, its wrapper
// gives a fixed neutral result, so that everything built on it degrades to "not decoded".
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "port/lazy_library.h"

namespace qzdata_report_kelvo {
namespace crypto {

// Memory layouts of the library's key schedules (AES_KEY, DES_key_schedule) and DES block.
struct AesKey {
    unsigned int roundKeys[4 * (14 + 1)];
    int rounds;
};
using DesBlock = unsigned char[8];
struct DesKeySchedule {
    unsigned int words[16][2];
};

inline constexpr int kDecrypt = 0;
inline constexpr int kEncrypt = 1;

// Opaque handle of a message digest method (EVP_MD).
struct EvpMd;

// The process-wide binder. Wrappers may be called from any thread; the per-function look-up is
// not locked (a race at most looks a function up twice, with the same result). Once looked up,
// a function is not looked up again, even if the library appears later.
class CryptoLibrary {
  public:
    static CryptoLibrary& Instance();

    // Null when unavailable.
    const EvpMd* EVP_md5();
    // Digests `size` bytes at `data` into `digest` (16 bytes for MD5); `digestSize` may be null.
    // Returns 1 on success. Unavailable: writes nothing and returns 0.
    int EVP_Digest(const void* data, size_t size, unsigned char* digest, unsigned int* digestSize,
                   const EvpMd* type, void* engine);
    // Unavailable: -1.
    int AES_set_decrypt_key(const unsigned char* key, int bits, AesKey* schedule);
    int AES_set_encrypt_key(const unsigned char* key, int bits, AesKey* schedule);
    // `vector` is updated in place. Unavailable: the first byte of `output` becomes 0xCD (when
    // `length` is not 0) and the rest is left as it stood.
    void AES_cbc_encrypt(const unsigned char* input, unsigned char* output, size_t length,
                         const AesKey* schedule, unsigned char* vector, int direction);
    // Unavailable: does nothing.
    void DES_set_key_unchecked(const DesBlock* key, DesKeySchedule* schedule);
    // Unavailable: copies `input` to `output` as it stands.
    void DES_ecb_encrypt(const DesBlock* input, DesBlock* output, const DesKeySchedule* schedule,
                         int direction);

    // Tests only: the next look-ups load `fileNames` instead (an empty list restores the
    // platform's names), and every function is looked up anew. Must not race other calls.
    void OverrideNamesForTesting(std::vector<std::string> fileNames);

  private:
    CryptoLibrary();

    port::LazyLibrary library;
    port::LazyFunction<const EvpMd*()> evpMd5;
    port::LazyFunction<int(const void*, size_t, unsigned char*, unsigned int*, const EvpMd*, void*)>
        evpDigest;
    port::LazyFunction<int(const unsigned char*, int, AesKey*)> aesSetDecryptKey;
    port::LazyFunction<int(const unsigned char*, int, AesKey*)> aesSetEncryptKey;
    port::LazyFunction<void(const unsigned char*, unsigned char*, size_t, const AesKey*,
                            unsigned char*, int)>
        aesCbcEncrypt;
    port::LazyFunction<void(const DesBlock*, DesKeySchedule*)> desSetKeyUnchecked;
    port::LazyFunction<void(const DesBlock*, DesBlock*, const DesKeySchedule*, int)> desEcbEncrypt;
};

}  // namespace crypto
}  // namespace qzdata_report_kelvo
