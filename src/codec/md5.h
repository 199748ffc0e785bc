// MD5 (RFC 1321) of the library's own, independent of the crypto library: the request key and
// the device configuration key are made with it, whether or not libcrypto can be loaded.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace qzdata_report_kelvo {

// A running MD5 computation. Local to one call; not thread-safe.
class Md5Context {
  public:
    Md5Context();

    // Resets the state and digests the whole of `text`.
    void Start(const std::string& text);

    // Adds `size` bytes at `data`. Clears the finished state, so that the next HexDigest
    // covers everything added so far.
    void Update(const void* data, size_t size);

    // The digest of everything added so far as 32 lower-case hexadecimal characters. Finishing
    // leaves the running state intact: more Update calls may follow and extend the input.
    std::string HexDigest();

  private:
    void Finish();
    void Transform(const uint8_t block[64]);

    uint32_t state[4];
    uint32_t count[2];  // bit count, low word first
    uint8_t buffer[64];
    uint8_t digest[16];
    bool finished;
};

}  // namespace qzdata_report_kelvo
