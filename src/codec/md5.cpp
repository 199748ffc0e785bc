#include "codec/md5.h"

#include <cstring>

#include "codec/text.h"

namespace qzdata_report_kelvo {

namespace {

inline uint32_t RotateLeft(uint32_t value, int bits) {
    return (value << bits) | (value >> (32 - bits));
}

// Per-step shift amounts and additive constants (the integer parts of abs(sin(i)) * 2^32).
constexpr int kShift[64] = {7, 12, 17, 22, 7, 12, 17, 22, 7, 12, 17, 22, 7, 12, 17, 22,
                            5, 9,  14, 20, 5, 9,  14, 20, 5, 9,  14, 20, 5, 9,  14, 20,
                            4, 11, 16, 23, 4, 11, 16, 23, 4, 11, 16, 23, 4, 11, 16, 23,
                            6, 10, 15, 21, 6, 10, 15, 21, 6, 10, 15, 21, 6, 10, 15, 21};
constexpr uint32_t kSine[64] = {
    0xd76aa478, 0xe8c7b756, 0x242070db, 0xc1bdceee, 0xf57c0faf, 0x4787c62a, 0xa8304613, 0xfd469501,
    0x698098d8, 0x8b44f7af, 0xffff5bb1, 0x895cd7be, 0x6b901122, 0xfd987193, 0xa679438e, 0x49b40821,
    0xf61e2562, 0xc040b340, 0x265e5a51, 0xe9b6c7aa, 0xd62f105d, 0x02441453, 0xd8a1e681, 0xe7d3fbc8,
    0x21e1cde6, 0xc33707d6, 0xf4d50d87, 0x455a14ed, 0xa9e3e905, 0xfcefa3f8, 0x676f02d9, 0x8d2a4c8a,
    0xfffa3942, 0x8771f681, 0x6d9d6122, 0xfde5380c, 0xa4beea44, 0x4bdecfa9, 0xf6bb4b60, 0xbebfbc70,
    0x289b7ec6, 0xeaa127fa, 0xd4ef3085, 0x04881d05, 0xd9d4d039, 0xe6db99e5, 0x1fa27cf8, 0xc4ac5665,
    0xf4292244, 0x432aff97, 0xab9423a7, 0xfc93a039, 0x655b59c3, 0x8f0ccc92, 0xffeff47d, 0x85845dd1,
    0x6fa87e4f, 0xfe2ce6e0, 0xa3014314, 0x4e0811a1, 0xf7537e82, 0xbd3af235, 0x2ad7d2bb, 0xeb86d391};

constexpr uint32_t kInitialState[4] = {0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476};

}  // namespace

Md5Context::Md5Context() : buffer(), digest(), finished(false) {
    std::memcpy(state, kInitialState, sizeof(state));
    count[0] = count[1] = 0;
}

void Md5Context::Start(const std::string& text) {
    std::memcpy(state, kInitialState, sizeof(state));
    count[0] = count[1] = 0;
    finished = false;
    Update(text.data(), text.size());
}

void Md5Context::Update(const void* data, size_t size) {
    finished = false;
    const auto* input = static_cast<const uint8_t*>(data);
    size_t used = (count[0] >> 3) & 0x3F;
    const uint64_t bits =
        ((static_cast<uint64_t>(count[1]) << 32) | count[0]) + (static_cast<uint64_t>(size) << 3);
    count[0] = static_cast<uint32_t>(bits);
    count[1] = static_cast<uint32_t>(bits >> 32);

    if (used > 0) {
        const size_t room = 64 - used;
        if (size < room) {
            std::memcpy(buffer + used, input, size);
            return;
        }
        std::memcpy(buffer + used, input, room);
        Transform(buffer);
        input += room;
        size -= room;
    }
    while (size >= 64) {
        Transform(input);
        input += 64;
        size -= 64;
    }
    if (size > 0) {
        std::memcpy(buffer, input, size);
    }
}

std::string Md5Context::HexDigest() {
    if (!finished) {
        Finish();
    }
    return text::HexEncode(digest, sizeof(digest), text::HexCase::kLower);
}

void Md5Context::Finish() {
    uint32_t savedState[4];
    uint32_t savedCount[2];
    uint8_t savedBuffer[64];
    std::memcpy(savedState, state, sizeof(state));
    std::memcpy(savedCount, count, sizeof(count));
    std::memcpy(savedBuffer, buffer, sizeof(buffer));

    uint8_t length[8];
    for (int i = 0; i < 4; ++i) {
        length[i] = static_cast<uint8_t>(count[0] >> (8 * i));
        length[4 + i] = static_cast<uint8_t>(count[1] >> (8 * i));
    }
    static const uint8_t kPadding[64] = {0x80};
    const size_t used = (count[0] >> 3) & 0x3F;
    Update(kPadding, used < 56 ? 56 - used : 120 - used);
    Update(length, sizeof(length));
    for (int i = 0; i < 4; ++i) {
        for (int j = 0; j < 4; ++j) {
            digest[4 * i + j] = static_cast<uint8_t>(state[i] >> (8 * j));
        }
    }

    // Padding went through the running state; put it back so that more input may follow.
    std::memcpy(state, savedState, sizeof(state));
    std::memcpy(count, savedCount, sizeof(count));
    std::memcpy(buffer, savedBuffer, sizeof(buffer));
    finished = true;
}

void Md5Context::Transform(const uint8_t block[64]) {
    uint32_t words[16];
    for (int i = 0; i < 16; ++i) {
        words[i] = static_cast<uint32_t>(block[4 * i]) |
                   (static_cast<uint32_t>(block[4 * i + 1]) << 8) |
                   (static_cast<uint32_t>(block[4 * i + 2]) << 16) |
                   (static_cast<uint32_t>(block[4 * i + 3]) << 24);
    }
    uint32_t a = state[0], b = state[1], c = state[2], d = state[3];
    for (int i = 0; i < 64; ++i) {
        uint32_t f;
        int g;
        if (i < 16) {
            f = (b & c) | (~b & d);
            g = i;
        } else if (i < 32) {
            f = (d & b) | (~d & c);
            g = (5 * i + 1) % 16;
        } else if (i < 48) {
            f = b ^ c ^ d;
            g = (3 * i + 5) % 16;
        } else {
            f = c ^ (b | ~d);
            g = (7 * i) % 16;
        }
        const uint32_t next = d;
        d = c;
        c = b;
        b = b + RotateLeft(a + f + kSine[i] + words[g], kShift[i]);
        a = next;
    }
    state[0] += a;
    state[1] += b;
    state[2] += c;
    state[3] += d;
}

}  // namespace qzdata_report_kelvo
