#include <gtest/gtest.h>

#include <functional>
#include <regex>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "api/legacy_bridge.h"
#include "port/env.h"
#include "post/text_conversion.h"
#include "qzdata_report.h"
#include "report/report_object.h"
#include "tests/api/fake_legacy_library.h"

namespace qzdata_report_kelvo {
namespace {

// The fields of the newest queued event but the common ones; empty if none was queued since.
ReportRecord NewEventFields(size_t& seen) {
    const std::vector<ReportPost> posts = GetReportObject()->GetReportThread().QueuedPosts();
    if (posts.size() == seen)
        return {};
    seen = posts.size();
    ReportRecord record = posts.back().records.at(0);
    EXPECT_TRUE(record["ati"].size() == 14 && record["act"] == "zhwebevent");
    return qz_fake_legacy::OwnFields(record);
}

// "key=value key=value" as a record; a leading "+" adds the tail most info-data reports share.
ReportRecord Fields(const std::string& text) {
    ReportRecord record;
    std::istringstream words(text);
    for (std::string word; words >> word;)
        if (word == "+")
            record.insert({{"fla", "Y"}, {"jav", "1"}, {"coo", "1"}, {"nve", "1.0"}});
        else
            record[word.substr(0, word.find('='))] = word.substr(word.find('=') + 1);
    return record;
}

// Each info-data report sends one custom event with its id and keys (none: refused), and none
// reaches the older library; nor do the getters of the value store.
TEST(ExportsTest, EachReportSendsItsIdAndKeysWithoutTheOlderLibrary) {
    static const LegacyFunctions table = MakeLinkedLegacyFunctions();
    SetLegacyFunctionsForTesting(&table);
    ASSERT_TRUE(Init(L"http://collector.test/", "D", "P", 600000, nullptr, L"", 0, false));
    qz_fake_legacy::Take();
    const InfoCData info{L"G", L"", L"r\u00e9", L""};
    const InfoCData passport{L"", L"S", L"", L"p"};
    // call, fields of its event as "key=value ..." ("": refused); "+" adds the common tail
    const std::vector<std::tuple<std::function<bool()>, std::string>> cases = {
        {[] { return PostCustomInfo(nullptr, L"x"); }, "+ eid=x gam=default gse=default"},
        {[&] { return PostCustomInfo(&info, nullptr); }, "+ eid= gam=G gse=default ref=r\xC3\xA9"},
        {[&] { return PostErrorInfo(&passport, 7, 8, L"c"); },
         "+ eid=error content=c gam=default gse=S pas=p error_code=7 sub_error_code=8"},
        {[] { return PostActionInfo(L"g", L"p"); }, "+ eid=click gam=g gse=default pid=p"},
        {[] { return PostActionInfo(L"", L"p"); }, ""},
        {[] { return PostFailInfo(L"s", 1, nullptr, nullptr); },
         "eid=fail step=s is_numerator=Y error_code= fla=N"},
        {[] { return PostFailInfo(L"s", 0, L"7", L"c"); },
         "eid=fail content=c step=s is_numerator=N error_code=7 fla=Y"},
        {[] { return PostTimerInfo(L"t"); }, "eid=timer step_group=t fla=Y"},
        {[] { return PostTimerInfo(nullptr); }, ""},
    };
    size_t seen = 0;
    for (const auto& [call, fields] : cases) {
        SCOPED_TRACE(fields);
        EXPECT_EQ(!fields.empty(), call());
        EXPECT_EQ(Fields(fields), NewEventFields(seen));
    }

    // The value store: getters of unknown keys give empty values and leave `value` alone.
    unsigned long value = 9, big = 0;
    EXPECT_TRUE(GetValue("k").empty() && GetWideValue("k").empty() && !GetDWORD("k", value) &&
                value == 9ul);
    SetValue("k", "w");
    SetWideValue("k", L"\u00e9");
    SetDWORD("k", 0);
    SetDWORD("big", static_cast<unsigned long>(0x100012345ull));  // 32 bits on Windows
    EXPECT_TRUE(GetValue("k") == "w" && GetWideValue("k") == L"\u00e9" && GetValue("K").empty());
    EXPECT_TRUE(GetDWORD("k", value) && GetDWORD("big", big) && value == 0 && big == 0x12345ul);
    EXPECT_EQ(4u, qz_fake_legacy::Take().size());  // the setters alone reach the older library
    SetLegacyFunctionsForTesting(nullptr);
}

// A timed event reports the 32-bit tick difference since its start, which stays for later ends;
// "showup" alone wraps long durations below 10 s; a duration that reads negative is left out.
TEST(ExportsTest, TimedEventsReportTheTicksSinceTheirStart) {
    struct TickEnv : port::EnvWrapper {
        uint32_t GetTickCount() override { return tick; }
        uint32_t tick = 4294960000u;  // the clock wraps during the test
    } env;
    port::Env::Install(&env);
    const uint32_t start = env.tick;
    // before Init; "other" twice
    EXPECT_TRUE(PostEventStart(L"showup") && PostEventStart(L"other") && PostEventStart(L"other"));
    ASSERT_TRUE(Init(L"http://collector.test/", "D", "P", 600000, nullptr, L"", 0, false));
    EXPECT_FALSE(PostEventDurEnd(L"never", L"d"));
    // ticks since the start, name, fields of the event sent
    const std::vector<std::tuple<uint32_t, std::wstring, std::string>> cases = {
        {25000, L"showup", "dur=5000"},           {25000, L"other", "dur=25000"},
        {10000, L"showup", "dur=10000"},          {10001, L"showup", "dur=1"},
        {2147483647, L"other", "dur=2147483647"}, {2147483648u, L"other", ""}};
    size_t seen = 0;
    for (const auto& [after, name, fields] : cases) {
        SCOPED_TRACE(after);
        env.tick = start + after;
        EXPECT_TRUE(PostEventDurEnd(name.c_str(), L"d\u00e9"));
        EXPECT_EQ(Fields("eid=" + WideToUtf8(name) + " eid_desc=d\xC3\xA9 " + fields),
                  NewEventFields(seen));
    }
    port::Env::Install(nullptr);
}

// Before Run the caller resolves the machine id itself, whatever the time-out, and a host can no
// longer give one. The names of this machine are plain texts fit for a query.
TEST(ExportsTest, BeforeRunTheCallerResolvesTheMachineId) {
    ASSERT_TRUE(Init(L"http://collector.test/", "D", "P", 600000, nullptr, L"", 0, false));
    EXPECT_EQ("", TryGetMachineId());
    const std::string id = GetMachineIdTimeout(1);
    EXPECT_TRUE(std::regex_match(id, std::regex("[0-9a-f]{32}"))) << id;
    EXPECT_TRUE(TryGetMachineId() == id && qzdata_report_kelvo_internal::GetMachineId() == id);
    EXPECT_FALSE(SetMachineId("x"));
    const std::string os = GetOsPlatformVersion();
    EXPECT_TRUE(std::regex_match(os, std::regex("[^ &=]+")) &&
                qzdata_report_kelvo_internal::GetOsPlatformVersion() == os)
        << os;
}

}  // namespace
}  // namespace qzdata_report_kelvo
