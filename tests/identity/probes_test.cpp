#include "identity/probes.h"

#include <gtest/gtest.h>

#include <atomic>
#include <map>
#include <tuple>

#include "identity/probe_text.h"
#include "identity/wmi_serials.h"

namespace qzdata_report_kelvo {
namespace {

TEST(CpuIdTextTest, SignatureAndFeatures) {
    const std::pair<port::CpuIdAnswer, const char*> cases[] = {
        {{true, 0, 0x16, 0xABCD06EA, 0xBFEBFBFF}, "06eabfebfbff"},
        {{true, 0, 1, 0x1, 0x2}, "000100000002"},
        {{false, 4, 0, 0x6EA, 0xFF}, "040000000000"},  // no CPUID: the family
        {{true, 4, 0, 0x6EA, 0xFF}, "000000000000"}};  // no leaf 1
    for (const auto& [answer, text] : cases)
        EXPECT_EQ(CpuIdText(answer), text);
}

// LANA 7 fails its status; the adapter list answers only when the LANAs cannot be enumerated.
struct FakeNetwork : NetworkAnswers {
    bool EnumerateLanas(std::vector<uint32_t>& out) override { return out = lanas, enumerates; }
    bool QueryLanaAddress(uint32_t lana, std::array<uint8_t, 6>& out) override {
        return addresses.count(lana) && (out = addresses.at(lana), true);
    }
    bool ListAdapters(std::vector<port::NetworkAdapter>& out) override {
        return ++adapterListCalls, out = adapters, listsAdapters;
    }

    bool enumerates = true, listsAdapters = true;
    std::vector<uint32_t> lanas;
    // clang-format off
    std::vector<port::NetworkAdapter> adapters = {{105, {0xDE, 0xAD, 0xBE, 0xEF}},
                                                  {2, {1, 2, 3, 4, 5, 6}}};
    std::map<uint32_t, std::array<uint8_t, 6>> addresses = {{1, {0xAA, 1, 2, 3, 4, 5}},
        {3, {0xBB, 0, 0, 0, 0, 0x0F}}, {123, {0x12, 0x34, 0x56, 0x78, 0x9A, 0xBC}}};
    // clang-format on
    int adapterListCalls = 0;
};

TEST(MacTextTest, LanasThenAdapterListInBothRules) {
    // enumerates, LANAs, lists adapters, text by the first rule, by the second
    // clang-format off
    const std::tuple<bool, std::vector<uint32_t>, bool, std::string, std::string> cases[] = {
        {true, {3, 123, 7, 1}, true, "03BB000000000F23123456789ABC01AA0102030405",
         "01AA010203040503BB000000000F123123456789ABC"},
        {true, {}, true, "", ""}, {false, {1}, false, "", ""},
        {false, {1}, true, "05DEADBEEF02010203040506", "105DEADBEEF02010203040506"}};
    // clang-format on
    for (const auto& [enumerates, lanas, listsAdapters, first, second] : cases) {
        FakeNetwork network;
        std::tie(network.enumerates, network.lanas, network.listsAdapters) =
            std::tie(enumerates, lanas, listsAdapters);
        EXPECT_EQ(NetworkAddressText(network, AddressTextRule::kFirst), first);
        EXPECT_EQ(NetworkAddressText(network, AddressTextRule::kSecond), second);
        EXPECT_EQ(network.adapterListCalls, enumerates ? 0 : 2);
    }
}

TEST(DiskIdentityTextTest, FieldsBufferAndBackwardWalk) {
    const std::string s(20, 's'), m(40, 'm');
    std::string identify(512, 'z');
    identify.replace(20, 20, "ABCD                ");
    identify.replace(54, 40, "EFGH" + std::string(36, ' '));
    std::vector<port::DiskIdentity> many(16, {"", s, m});
    // 1004 bytes so far; the next drive is cut at the limit, the last finds no room
    many.insert(many.end(), {{"", s, m.substr(16)}, {"", s, m}, {"", s, m}});
    std::string manyText = s + m.substr(16) + s;
    for (int i = 0; i < 16; ++i)
        manyText += m + s;
    manyText.pop_back();
    // clang-format off
    const std::pair<std::vector<port::DiskIdentity>, std::string> cases[] = {
        {{{"", "AB CD", ""}}, "DCB"}, {{{"", "    ", "MODEL  "}}, "LEDO"},
        {{{"", "12345678901234567890XYZ", std::string("M\0N", 3)}}, "M0987654321098765432"},
        {{{"", "1", m + "mmmmmX"}, {"", "", "n"}}, "n" + m},
        {{{identify, "ignored", "ignored"}}, "HGFEDCB"}, {many, manyText}};
    // clang-format on
    for (const auto& [disks, text] : cases)
        EXPECT_EQ(DiskIdentityText(disks), text);
}

TEST(FirmwareDateTextTest, PlacesInOrderAndTheTextForm) {
    const std::string late = "12/25/" + std::string(200, '9'), lateCut = late.substr(0, 127);
    const std::string d = "06-2023-01", a = "1234567.901.3", b = "7654321.109.9";
    // clang-format off
    const std::pair<std::map<size_t, std::string>, std::string> cases[] = {
        {{{0xEC71, "12/25/99"}, {0xF478, d}}, "12/25/99"}, {{{0x7550, b}}, b},
        {{{0xEC71, "12/25/\0319"}, {0xF478, d}, {0x6577, a}}, d}, {{{0xEC71, "12/25/99\x7F"}}, ""},
        {{{0xEC71, "12-25-99"}, {0x6577, "1234567x901.3"}, {0x7196, a}, {0x7550, b}}, a},
        {{{0x6577, "1111111.111.1"}, {0x7196, a}}, "1111111.111.1"}, {{{0xEC71, late}}, lateCut}};
    // clang-format on
    for (const auto& [places, date] : cases) {
        port::FirmwareAnswer answer{std::string(0xFFFF, '\0'), "12/25/2019"};
        for (const auto& [offset, text] : places)
            answer.memoryView.replace(offset, text.size(), text);
        EXPECT_EQ(FirmwareDateText(answer), date);
    }
    for (const char* text : {"12/25/2019", "06-2023-01"})
        EXPECT_EQ(FirmwareDateText({"", text}), text);
    for (const char* text : {"2019-12-25", "12/25/2019\x01"})
        EXPECT_EQ(FirmwareDateText({"", text}), "");
}

TEST(WmiRowsTest, FilterSortAndJoin) {
    // The second row has only letters outside ASCII.
    const std::vector<WmiRow> rows = {
        {"Intel Corp.", "abc-123"}, {"\xC3\x84\xC3\x96"}, {" a{`@[z", ""}, {"/09:@AZ[`az{"}, {}};
    EXPECT_EQ(JoinWmiRows(rows), "09AZAZAZINTELCORPABC123");
    EXPECT_EQ(HexBytes({0x00, 0xAB, 0x7F}), "00AB7F");
}

// A management service that answers from `values`.
struct FakeSource : WmiSerialsSource {
    using F = port::SerialFact;
    bool Open() override { return ++openCalls, opens; }
    void Query(F fact, std::vector<std::string>& out) override { ++queries, out = values[fact]; }
    void Close() override {}

    std::map<F, std::vector<std::string>> values = {{F::kVolumeSerial, {"V"}}};
    bool opens = true;
    std::atomic<int> openCalls{0}, queries{0};
};

TEST(WmiSerialsTest, OnlyTheLastQuerySurvivesAndTheThreadRunsOnce) {
    // opens, the video devices found (the last query), the text
    const std::tuple<bool, std::vector<std::string>, std::string> cases[] = {
        {true, {"PCI\\VEN_10DE", "&2"}, "PCI\\VEN_10DE&2"}, {true, {}, ""}, {false, {"&2"}, ""}};
    for (const auto& [opens, video, text] : cases) {
        FakeSource source;
        source.opens = opens;
        source.values[port::SerialFact::kVideoDeviceIds] = video;
        WmiSerialsProbe probe(source, 60000);
        EXPECT_EQ(probe.GetText() + "|" + probe.GetText(), text + "|" + text);
        EXPECT_EQ(probe.GetState(), opens ? WmiSerialsProbe::kReady : WmiSerialsProbe::kStarted);
        EXPECT_EQ(std::make_pair(source.queries.load(), source.openCalls.load()),
                  std::make_pair(opens ? 5 : 0, 1));
    }
}

TEST(MachineIdTest, DigestOfThisMachinesProbeTextsInOrder) {
    EXPECT_EQ(DigestMachineText(""), "");
    EXPECT_EQ(DigestMachineText("abc"), "900150983cd24fb0d6963f7d28e17f72");
    HardwareProbes& probes = DefaultHardwareProbes();
    const std::string id = DeriveMachineId();
    const std::string cpu = probes.GetCpuIdText();
    EXPECT_EQ(cpu.size(), 12u);
    EXPECT_EQ(id, DigestMachineText(cpu + GetMacAllInfoText() + GetWmiSerialsText() +
                                    probes.GetDiskIdentityText() + probes.GetFirmwareDateText()));
}

}  // namespace
}  // namespace qzdata_report_kelvo
