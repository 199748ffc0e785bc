// Shared by the fuzz targets: a failed check that libFuzzer reports as a crash, a scratch folder,
// and the server-side encoders the library lacks, written independently of its decoders.
#pragma once

#include <stdlib.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <string>

#include "codec/crypto_library.h"
#include "codec/md5.h"
#include "deployment_config.h"

#define QZ_FUZZ_CHECK(condition)                                                                 \
    ((condition) ? void()                                                                        \
                 : (std::fprintf(stderr, "%s:%d: broken: %s\n", __FILE__, __LINE__, #condition), \
                    std::abort()))

namespace qz_fuzz {

namespace crypto = qzdata_report_kelvo::crypto;

// Made once under $TMPDIR; XDG_DATA_HOME and XDG_CONFIG_HOME point into it, so no target
// touches the files of the user running it. Ends with "/".
inline const std::string& ScratchFolder() {
    static const std::string folder = [] {
        const char* base = std::getenv("TMPDIR");
        std::string path =
            std::string(base != nullptr && *base ? base : "/tmp") + "/qz-fuzz-XXXXXX";
        QZ_FUZZ_CHECK(mkdtemp(&path[0]) != nullptr);
        setenv("XDG_DATA_HOME", (path + "/data").c_str(), 1);
        setenv("XDG_CONFIG_HOME", (path + "/config").c_str(), 1);
        return path + "/";
    }();
    return folder;
}

inline void WriteFile(const std::string& path, const std::string& bytes) {
    QZ_FUZZ_CHECK(std::ofstream(path, std::ios::binary).write(bytes.data(), bytes.size()));
}

// Standard base64 with "=" padding.
inline std::string Base64Encode(const std::string& bytes) {
    static const char abc[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    uint32_t bits = 0, count = 0;
    for (unsigned char byte : bytes)
        for (bits = bits << 8 | byte, count += 8; count >= 6;)
            text += abc[(bits >> (count -= 6)) & 63];
    if (count > 0)
        text += abc[(bits << (6 - count)) & 63];
    return text.append((4 - text.size() % 4) % 4, '=');
}

// The strategy server's side: `plain` (not empty) in AES-128-CBC, key and vector the MD5 of the
// strategy pass, zero padding, behind its length as 8 decimal digits, the cipher text in hex.
inline std::string EncipherStrategyBlob(const std::string& plain) {
    crypto::CryptoLibrary& library = crypto::CryptoLibrary::Instance();
    const std::string pass = qzdata_report_kelvo::deployment::kStrategyPass;
    unsigned char key[16];
    QZ_FUZZ_CHECK(library.EVP_md5() != nullptr &&
                  library.EVP_Digest(pass.data(), pass.size(), key, nullptr, library.EVP_md5(),
                                     nullptr) == 1);
    crypto::AesKey schedule;
    library.AES_set_encrypt_key(key, 128, &schedule);
    const std::string padded = plain + std::string((16 - plain.size() % 16) % 16, '\0');
    std::string cipher(padded.size(), '\0');
    library.AES_cbc_encrypt(reinterpret_cast<const unsigned char*>(padded.data()),
                            reinterpret_cast<unsigned char*>(&cipher[0]), padded.size(), &schedule,
                            key, crypto::kEncrypt);
    std::string text = std::to_string(100000000 + plain.size()).substr(1);  // 8 digits
    for (unsigned char byte : cipher)
        text.append({"0123456789abcdef"[byte >> 4], "0123456789abcdef"[byte & 15]});
    return text;
}

// The configuration server's side: `plain` in DES-ECB (PKCS#7 padding) keyed by the first 8
// characters of the hex MD5 of (time + configuration pass), in base64.
inline std::string EncipherDeviceConfig(const std::string& time, const std::string& plain) {
    crypto::CryptoLibrary& library = crypto::CryptoLibrary::Instance();
    qzdata_report_kelvo::Md5Context md5;
    md5.Start(time + qzdata_report_kelvo::deployment::kConfigPass);
    crypto::DesBlock key;
    std::copy_n(md5.HexDigest().begin(), 8, key);
    crypto::DesKeySchedule schedule;
    library.DES_set_key_unchecked(&key, &schedule);
    const size_t pad = 8 - plain.size() % 8;
    const std::string padded = plain + std::string(pad, static_cast<char>(pad));
    std::string cipher(padded.size(), '\0');
    for (size_t at = 0; at < padded.size(); at += 8)
        library.DES_ecb_encrypt(reinterpret_cast<const crypto::DesBlock*>(padded.data() + at),
                                reinterpret_cast<crypto::DesBlock*>(&cipher[at]), &schedule,
                                crypto::kEncrypt);
    return Base64Encode(cipher);
}

}  // namespace qz_fuzz
