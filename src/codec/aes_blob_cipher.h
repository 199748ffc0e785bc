// Deciphering of the strategy blob: AES-128-CBC with the MD5 of a pass string as both key and
// initialisation vector, behind an 8-digit plain length.
#pragma once

#include <cstdint>
#include <string>

#include "codec/crypto_library.h"

namespace qzdata_report_kelvo {

// Result of CAesBlobCipher::Decode. On failure all three are empty or 0; a caller judges
// failure by both lengths being 0.
struct AesBlobPlain {
    std::string plain;
    int32_t plainLength = 0;
    int32_t cipherLength = 0;
};

// A local object of one decoding; not shared between threads. Needs the crypto library: without
// it the key schedule is never set and the output is garbage (its first byte 0xCD), which the
// blob's parser rejects.
class CAesBlobCipher {
  public:
    // `base64Text` false: the cipher text behind the length is lower-case hexadecimal; true:
    // base64.
    explicit CAesBlobCipher(bool base64Text = false);

    // Stores `pass` and digests it with the crypto library's MD5 into the key; a missing
    // library leaves the key as it was.
    void SetPassString(const std::string& pass);

    // crypto::kEncrypt sets the encryption schedule, any other value the decryption schedule.
    void SetDirection(uint32_t direction);

    // Checks the 8-digit length and the size of `blob`, converts the cipher text to bytes and
    // deciphers it; the plain text is the first (length) bytes, padding not inspected.
    AesBlobPlain Decode(const std::string& blob);

  private:
    crypto::AesKey keySchedule;
    unsigned char digest[16];
    std::string passString;
    bool base64Text;
};

}  // namespace qzdata_report_kelvo
