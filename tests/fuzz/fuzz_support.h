// Shared pieces of the fuzz targets: a failing check that libFuzzer reports as a crash, a
// private scratch folder for everything the library writes, and the encoders the library
// lacks (it only decodes), written here independently of its decoders.
#pragma once

#include <stdlib.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>

#include "codec/constants.h"
#include "codec/crypto_library.h"
#include "codec/md5.h"
#include "deployment_config.h"

namespace qz_fuzz {

[[noreturn]] inline void Fail(const char* what, const char* file, int line) {
    std::fprintf(stderr, "%s:%d: property violated: %s\n", file, line, what);
    std::fflush(stderr);
    std::abort();
}

#define QZ_FUZZ_CHECK(condition)                                   \
    do {                                                           \
        if (!(condition)) {                                        \
            ::qz_fuzz::Fail(#condition, __FILE__, __LINE__);       \
        }                                                          \
    } while (0)

// Made once per process under $TMPDIR (else /tmp); XDG_DATA_HOME and XDG_CONFIG_HOME point
// into it, so that no target touches the files of the user running it. Ends with "/".
inline const std::string& ScratchFolder() {
    static const std::string folder = [] {
        const char* base = std::getenv("TMPDIR");
        std::string pattern = std::string(base != nullptr && *base != '\0' ? base : "/tmp") +
                              "/qz-fuzz-XXXXXX";
        if (mkdtemp(&pattern[0]) == nullptr) {
            Fail("mkdtemp", __FILE__, __LINE__);
        }
        pattern += "/";
        setenv("XDG_DATA_HOME", (pattern + "data").c_str(), 1);
        setenv("XDG_CONFIG_HOME", (pattern + "config").c_str(), 1);
        return pattern;
    }();
    return folder;
}

inline bool WriteFile(const std::string& path, const std::string& bytes) {
    FILE* file = std::fopen(path.c_str(), "wb");
    if (file == nullptr) {
        return false;
    }
    const bool written = bytes.empty() || std::fwrite(bytes.data(), bytes.size(), 1, file) == 1;
    return std::fclose(file) == 0 && written;
}

inline bool FileExists(const std::string& path) {
    return access(path.c_str(), F_OK) == 0;
}

// Standard base64 with "=" padding (RFC 4648).
inline std::string Base64Encode(const std::string& bytes) {
    static const char alphabet[] =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    size_t i = 0;
    for (; i + 3 <= bytes.size(); i += 3) {
        const uint32_t group = static_cast<uint8_t>(bytes[i]) << 16 |
                               static_cast<uint8_t>(bytes[i + 1]) << 8 |
                               static_cast<uint8_t>(bytes[i + 2]);
        for (int shift = 18; shift >= 0; shift -= 6) {
            text += alphabet[(group >> shift) & 0x3F];
        }
    }
    const size_t rest = bytes.size() - i;
    if (rest > 0) {
        uint32_t group = static_cast<uint8_t>(bytes[i]) << 16;
        if (rest == 2) {
            group |= static_cast<uint8_t>(bytes[i + 1]) << 8;
        }
        text += alphabet[(group >> 18) & 0x3F];
        text += alphabet[(group >> 12) & 0x3F];
        text += rest == 2 ? alphabet[(group >> 6) & 0x3F] : '=';
        text += '=';
    }
    return text;
}

// The strategy server's side: `plain` (not empty) enciphered with AES-128-CBC, key and vector
// the MD5 of the strategy pass, zero padding to whole blocks, behind its length as 8 decimal
// digits, the cipher text in lower-case hexadecimal. Empty when the crypto library is missing.
inline std::string EncipherStrategyBlob(const std::string& plain) {
    using namespace qzdata_report_kelvo;
    crypto::CryptoLibrary& library = crypto::CryptoLibrary::Instance();
    const crypto::EvpMd* md5 = library.EVP_md5();
    if (md5 == nullptr || plain.empty() || plain.size() > 99999999) {
        return std::string();
    }
    const std::string pass = deployment::kStrategyPass;
    unsigned char key[16];
    if (library.EVP_Digest(pass.data(), pass.size(), key, nullptr, md5, nullptr) != 1) {
        return std::string();
    }
    crypto::AesKey schedule;
    library.AES_set_encrypt_key(key, codec::kAesKeyBits, &schedule);
    std::string padded = plain;
    padded.resize((plain.size() + 15) / 16 * 16, '\0');
    std::string cipher(padded.size(), '\0');
    library.AES_cbc_encrypt(reinterpret_cast<const unsigned char*>(padded.data()),
                            reinterpret_cast<unsigned char*>(&cipher[0]), padded.size(), &schedule,
                            key, crypto::kEncrypt);
    char length[16];
    std::snprintf(length, sizeof(length), "%08zu", plain.size());
    std::string blob = length;
    static const char hex[] = "0123456789abcdef";
    for (unsigned char byte : cipher) {
        blob += hex[byte >> 4];
        blob += hex[byte & 15];
    }
    return blob;
}

// The configuration server's side: `plain` enciphered with DES-ECB (PKCS#7 padding) keyed by
// the first 8 characters of the hexadecimal MD5 of (time + configuration pass), in base64.
inline std::string EncipherDeviceConfig(const std::string& time, const std::string& plain) {
    using namespace qzdata_report_kelvo;
    crypto::CryptoLibrary& library = crypto::CryptoLibrary::Instance();
    Md5Context md5;
    md5.Start(time + deployment::kConfigPass);
    const std::string keyText = md5.HexDigest();
    crypto::DesBlock key;
    for (size_t i = 0; i < 8; ++i) {
        key[i] = static_cast<unsigned char>(keyText[i]);
    }
    crypto::DesKeySchedule schedule;
    library.DES_set_key_unchecked(&key, &schedule);
    std::string padded = plain;
    const size_t pad = 8 - plain.size() % 8;
    padded.append(pad, static_cast<char>(pad));
    std::string cipher(padded.size(), '\0');
    for (size_t at = 0; at < padded.size(); at += 8) {
        library.DES_ecb_encrypt(reinterpret_cast<const crypto::DesBlock*>(padded.data() + at),
                                reinterpret_cast<crypto::DesBlock*>(&cipher[at]), &schedule,
                                crypto::kEncrypt);
    }
    return Base64Encode(cipher);
}

}  // namespace qz_fuzz
