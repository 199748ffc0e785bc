#include "codec/md5.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

namespace qzdata_report_kelvo {
namespace {

TEST(Md5ContextTest, Rfc1321Suite) {
    const struct {
        std::string input;
        const char* digest;
    } suite[] = {
        // RFC 1321, appendix A.5
        {"", "d41d8cd98f00b204e9800998ecf8427e"},
        {"a", "0cc175b9c0f1b6a831c399e269772661"},
        {"abc", "900150983cd24fb0d6963f7d28e17f72"},
        {"message digest", "f96b697d7cb7938d525a2f31aaf161d0"},
        {"abcdefghijklmnopqrstuvwxyz", "c3fcd3d76192e4007dfb496cca67e13b"},
        {"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789",
         "d174ab98d277d9f5a5611c2c9f419d9f"},
        {"12345678901234567890123456789012345678901234567890123456789012345678901234567890",
         "57edf4a22be3c955ac49da2e2107b67a"},
    };
    for (const auto& c : suite) {
        Md5Context context;
        context.Start(c.input);
        EXPECT_EQ(context.HexDigest(), c.digest) << '"' << c.input << '"';
    }
}

// Feeding the input in pieces of every size, across block boundaries, gives the same digest as
// one Start; lengths around 56 and 64 reach both padding branches of the finish.
TEST(Md5ContextTest, PiecewiseUpdatesMatchOneShot) {
    std::string text;
    while (text.size() < 300) {
        text += static_cast<char>('!' + text.size() * 7 % 90);
    }
    for (size_t length : {55u, 56u, 57u, 63u, 64u, 65u, 119u, 120u, 128u, 300u}) {
        const std::string input = text.substr(0, length);
        Md5Context whole;
        whole.Start(input);
        const std::string expected = whole.HexDigest();
        for (size_t piece : {1u, 3u, 63u, 64u, 65u}) {
            Md5Context context;
            context.Start("");
            for (size_t at = 0; at < input.size(); at += piece) {
                context.Update(input.data() + at, std::min(piece, input.size() - at));
            }
            EXPECT_EQ(context.HexDigest(), expected) << "length " << length << " piece " << piece;
        }
    }
}

TEST(Md5ContextTest, FinishLeavesRunningStateIntact) {
    Md5Context context;
    context.Start("message ");
    EXPECT_EQ(context.HexDigest(), context.HexDigest());
    context.Update("digest", 6);
    EXPECT_EQ(context.HexDigest(), "f96b697d7cb7938d525a2f31aaf161d0");

    // Across a block boundary: the saved buffer must come back, too.
    const std::string head(60, 'x');
    const std::string tail(70, 'y');
    Md5Context split;
    split.Start(head);
    split.HexDigest();
    split.Update(tail.data(), tail.size());
    Md5Context whole;
    whole.Start(head + tail);
    EXPECT_EQ(split.HexDigest(), whole.HexDigest());

    // Start resets everything that came before.
    split.Start("abc");
    EXPECT_EQ(split.HexDigest(), "900150983cd24fb0d6963f7d28e17f72");
}

}  // namespace
}  // namespace qzdata_report_kelvo
