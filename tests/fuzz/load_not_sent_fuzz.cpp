// The not-sent pack a next run loads, from any file. A pack never yields more posts than its
// header counts, and what was loaded, written again by the pack writer and loaded back, is the
// same: flag, records and the URL up to its terminator.
#include <cstring>
#include <vector>

#include "fuzz_support.h"
#include "post/not_sent_pack.h"

namespace post = qzdata_report_kelvo::post;
using qzdata_report_kelvo::ReportPost;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string path = qz_fuzz::ScratchFolder() + "pack.bin";
    const std::wstring wide(path.begin(), path.end());
    qz_fuzz::WriteFile(path, std::string(reinterpret_cast<const char*>(data), size));
    std::vector<ReportPost> posts, again;
    const bool isPack = size >= 8 && std::memcmp(data, "tzdr", 4) == 0;
    QZ_FUZZ_CHECK(post::ReadNotSentPack(wide, posts) == isPack);
    if (!isPack)
        return 0;
    QZ_FUZZ_CHECK(posts.size() <=
                  (data[4] | data[5] << 8 | data[6] << 16 | uint32_t{data[7]} << 24));
    post::NotSentPackWriter writer;
    QZ_FUZZ_CHECK(writer.Open(wide + L"2"));
    for (const ReportPost& loaded : posts)
        QZ_FUZZ_CHECK(writer.Write(loaded.url, loaded.flag, loaded.records));
    QZ_FUZZ_CHECK(writer.Close());
    QZ_FUZZ_CHECK(post::ReadNotSentPack(wide + L"2", again) && again.size() == posts.size());
    for (size_t i = 0; i < posts.size(); ++i)
        QZ_FUZZ_CHECK(again[i].flag == posts[i].flag && again[i].records == posts[i].records &&
                      again[i].url.substr(0, again[i].url.find(L'\0')) ==
                          posts[i].url.substr(0, posts[i].url.find(L'\0')));
    return 0;
}
