// The not-sent pack that a next run loads, from any file. A file that is no pack (shorter than
// the header, another magic) gives nothing; a pack gives at most as many posts as its header
// counts, and what was loaded, written again by the pack writer and loaded back, is the same:
// flag, records and the URL up to its terminator.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "fuzz_support.h"
#include "post/not_sent_pack.h"

namespace {

using qzdata_report_kelvo::ReportPost;

std::wstring Wide(const std::string& ascii) {
    return std::wstring(ascii.begin(), ascii.end());
}

std::wstring UpToTerminator(const std::wstring& text) {
    return text.substr(0, text.find(L'\0'));
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    qz_fuzz::ScratchFolder();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    namespace post = qzdata_report_kelvo::post;
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    const std::string path = qz_fuzz::ScratchFolder() + "pack.bin";
    const std::string again = qz_fuzz::ScratchFolder() + "pack-again.bin";
    QZ_FUZZ_CHECK(qz_fuzz::WriteFile(path, bytes));

    std::vector<ReportPost> posts;
    const bool isPack = size >= 8 && std::memcmp(data, "tzdr", 4) == 0;
    QZ_FUZZ_CHECK(post::ReadNotSentPack(Wide(path), posts) == isPack);
    if (!isPack) {
        QZ_FUZZ_CHECK(posts.empty());
        return 0;
    }
    const uint32_t counted = data[4] | data[5] << 8 | data[6] << 16 | uint32_t{data[7]} << 24;
    QZ_FUZZ_CHECK(posts.size() <= counted);

    {
        post::NotSentPackWriter writer;
        QZ_FUZZ_CHECK(writer.Open(Wide(again)));
        for (const ReportPost& loaded : posts) {
            QZ_FUZZ_CHECK(writer.Write(loaded.url, loaded.flag, loaded.records));
        }
        QZ_FUZZ_CHECK(writer.Close());
    }
    std::vector<ReportPost> reloaded;
    QZ_FUZZ_CHECK(post::ReadNotSentPack(Wide(again), reloaded));
    QZ_FUZZ_CHECK(reloaded.size() == posts.size());
    for (size_t i = 0; i < posts.size(); ++i) {
        QZ_FUZZ_CHECK(reloaded[i].flag == posts[i].flag);
        QZ_FUZZ_CHECK(reloaded[i].records == posts[i].records);
        QZ_FUZZ_CHECK(UpToTerminator(reloaded[i].url) == UpToTerminator(posts[i].url));
    }
    return 0;
}
