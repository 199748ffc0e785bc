#include "identity/probes.h"

#include <gtest/gtest.h>

#include <condition_variable>
#include <map>
#include <mutex>
#include <thread>

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
    for (const auto& [answer, text] : cases) {
        EXPECT_EQ(CpuIdText(answer), text);
    }
}

class FakeNetwork : public NetworkAnswers {
  public:
    bool EnumerateLanas(std::vector<uint32_t>& out) override {
        out = lanas;
        return enumerates;
    }
    bool QueryLanaAddress(uint32_t lana, std::array<uint8_t, 6>& out) override {
        const auto found = addresses.find(lana);
        if (found != addresses.end()) {
            out = found->second;
        }
        return found != addresses.end();
    }
    bool ListAdapters(std::vector<port::NetworkAdapter>& out) override {
        ++adapterListCalls;
        out = {{105, {0xDE, 0xAD, 0xBE, 0xEF}}, {2, {1, 2, 3, 4, 5, 6}}};
        return listsAdapters;
    }

    bool enumerates = true;
    std::vector<uint32_t> lanas;
    std::map<uint32_t, std::array<uint8_t, 6>> addresses = {
        // LANA 7 fails its status
        {1, {0xAA, 1, 2, 3, 4, 5}},
        {3, {0xBB, 0, 0, 0, 0, 0x0F}},
        {123, {0x12, 0x34, 0x56, 0x78, 0x9A, 0xBC}}};
    bool listsAdapters = true;
    int adapterListCalls = 0;
};

TEST(MacTextTest, LanasThenAdapterListInBothRules) {
    struct Case {
        bool enumerates;
        std::vector<uint32_t> lanas;
        bool listsAdapters;
        std::string first, second;
    } cases[] = {{true,
                  {3, 123, 7, 1},
                  true,
                  "03BB000000000F23123456789ABC01AA0102030405",
                  "01AA010203040503BB000000000F123123456789ABC"},
                 {true, {}, true, "", ""},
                 {false, {1}, true, "05DEADBEEF02010203040506", "105DEADBEEF02010203040506"},
                 {false, {1}, false, "", ""}};
    for (const Case& c : cases) {
        FakeNetwork network;
        network.enumerates = c.enumerates;
        network.lanas = c.lanas;
        network.listsAdapters = c.listsAdapters;
        EXPECT_EQ(NetworkAddressText(network, AddressTextRule::kFirst), c.first);
        EXPECT_EQ(NetworkAddressText(network, AddressTextRule::kSecond), c.second);
        EXPECT_EQ(network.adapterListCalls, c.enumerates ? 0 : 2);
    }
}

TEST(DiskIdentityTextTest, FieldsBufferAndBackwardWalk) {
    std::string identify(512, 'z');
    identify.replace(20, 20, "ABCD                ");
    identify.replace(54, 40, "EFGH" + std::string(36, ' '));
    const port::DiskIdentity full{"", std::string(20, 's'), std::string(40, 'm')};
    std::vector<port::DiskIdentity> many(16, full);
    many.push_back({"", std::string(20, 's'), std::string(24, 'm')});  // 1004 bytes so far
    many.push_back(full);                                              // cut at the limit
    many.push_back(full);                                              // no room
    std::string manyText = std::string(20, 's') + std::string(24, 'm') + std::string(20, 's');
    for (int i = 0; i < 16; ++i) {
        manyText += std::string(40, 'm') + std::string(20, 's');
    }
    manyText.pop_back();
    const std::pair<std::vector<port::DiskIdentity>, std::string> cases[] = {
        {{{"", "AB CD", ""}}, "DCB"},
        {{{"", "    ", "MODEL  "}}, "LEDO"},
        {{{"", "12345678901234567890XYZ", std::string("M\0N", 3)}}, "M0987654321098765432"},
        {{{"", "1", std::string(45, 'm') + "X"}, {"", "", "n"}}, "n" + std::string(40, 'm')},
        {{{identify, "ignored", "ignored"}}, "HGFEDCB"},
        {many, manyText}};
    for (const auto& [disks, text] : cases) {
        EXPECT_EQ(DiskIdentityText(disks), text);
    }
}

TEST(FirmwareDateTextTest, PlacesInOrderAndTheTextForm) {
    using Places = std::map<size_t, std::string>;
    const std::pair<Places, std::string> cases[] = {
        {{{0xEC71, "12/25/99"}, {0xF478, "06-2023-01"}}, "12/25/99"},
        {{{0xEC71,
           "12/25/\x19"
           "9"},
          {0xF478, "06-2023-01"},
          {0x6577, "1234567.901.3"}},
         "06-2023-01"},
        {{{0xEC71, "12-25-99"},
          {0x6577, "1234567x901.3"},
          {0x7196, "1234567.901.3"},
          {0x7550, "7654321.109.9"}},
         "1234567.901.3"},
        {{{0x6577, "1111111.111.1"}, {0x7196, "1234567.901.3"}}, "1111111.111.1"},
        {{{0x7550, "7654321.109.9"}}, "7654321.109.9"},
        {{{0xEC71, "12/25/99\x7F"}}, ""},
        {{{0xEC71, "12/25/" + std::string(200, '9')}}, "12/25/" + std::string(121, '9')}};
    for (const auto& [places, date] : cases) {
        port::FirmwareAnswer answer{std::string(0xFFFF, '\0'), "12/25/2019"};
        for (const auto& [offset, text] : places) {
            answer.memoryView.replace(offset, text.size(), text);
        }
        EXPECT_EQ(FirmwareDateText(answer), date);
    }
    const std::pair<const char*, const char*> texts[] = {{"12/25/2019", "12/25/2019"},
                                                         {"06-2023-01", "06-2023-01"},
                                                         {"2019-12-25", ""},
                                                         {"12/25/2019\x01", ""}};
    for (const auto& [text, date] : texts) {
        EXPECT_EQ(FirmwareDateText({"", text}), date);
    }
}

TEST(WmiRowsTest, FilterSortAndJoin) {
    EXPECT_EQ(JoinWmiRows({{"Intel Corp.", "abc-123"},
                           {"\xC3\x84\xC3\x96"},  // only letters outside ASCII
                           {" a{`@[z", ""},
                           {"/09:@AZ[`az{"},
                           {}}),
              "09AZAZAZINTELCORPABC123");
    EXPECT_EQ(HexBytes({0x00, 0xAB, 0x7F}), "00AB7F");
}

// A management service whose Open waits while the gate is shut.
class GatedSource : public WmiSerialsSource {
  public:
    bool Open() override {
        std::unique_lock<std::mutex> lock(mutex);
        ++openCalls;
        entered = true;
        changed.notify_all();
        changed.wait(lock, [this] { return !gated; });
        return opens;
    }
    void Query(port::SerialFact fact, std::vector<std::string>& out) override {
        ++queries;
        out = values[fact];
    }
    void Close() override {
        std::lock_guard<std::mutex> lock(mutex);
        closed = true;
        changed.notify_all();
    }
    void WaitUntil(bool GatedSource::*flag) {
        std::unique_lock<std::mutex> lock(mutex);
        changed.wait(lock, [&] { return this->*flag; });
    }
    void OpenGate() {
        std::lock_guard<std::mutex> lock(mutex);
        gated = false;
        changed.notify_all();
    }

    std::map<port::SerialFact, std::vector<std::string>> values = {
        {port::SerialFact::kVolumeSerial, {"V"}},
        {port::SerialFact::kSystemSerial, {"S"}},
        {port::SerialFact::kDiskDeviceIds, {"D"}},
        {port::SerialFact::kSoundDeviceIds, {"A"}},
        {port::SerialFact::kVideoDeviceIds, {"PCI\\VEN_10DE", "&2"}}};
    bool opens = true;
    bool gated = false;
    bool entered = false;
    bool closed = false;
    int openCalls = 0;
    int queries = 0;
    std::mutex mutex;
    std::condition_variable changed;
};

TEST(WmiSerialsTest, OnlyTheLastQuerySurvivesAndTheThreadRunsOnce) {
    const struct {
        bool opens;
        bool videoFound;
        std::string text;
        WmiSerialsProbe::State state;
        int queries;
    } cases[] = {{true, true, "PCI\\VEN_10DE&2", WmiSerialsProbe::kReady, 5},
                 {true, false, "", WmiSerialsProbe::kReady, 5},
                 {false, true, "", WmiSerialsProbe::kStarted, 0}};
    for (const auto& c : cases) {
        GatedSource source;
        source.opens = c.opens;
        if (!c.videoFound) {
            source.values.erase(port::SerialFact::kVideoDeviceIds);
        }
        WmiSerialsProbe probe(source, 60000);
        EXPECT_EQ(probe.GetText(), c.text);
        EXPECT_EQ(probe.GetText(), c.text);
        EXPECT_EQ(probe.GetState(), c.state);
        EXPECT_EQ(source.queries, c.queries);
        EXPECT_EQ(source.openCalls, 1);
    }
}

TEST(WmiSerialsTest, CallsDuringTheFirstReturnAtOnceAndSeeALateThread) {
    GatedSource source;
    source.gated = true;
    WmiSerialsProbe probe(source, 60000);
    std::string first = "unset";
    std::thread caller([&] { first = probe.GetText(); });
    source.WaitUntil(&GatedSource::entered);
    EXPECT_EQ(probe.GetText(), "");
    EXPECT_EQ(probe.GetState(), WmiSerialsProbe::kStarted);
    source.OpenGate();
    caller.join();
    EXPECT_EQ(first, "PCI\\VEN_10DE&2");

    GatedSource lateSource;
    lateSource.gated = true;
    WmiSerialsProbe bounded(lateSource, 0);
    EXPECT_EQ(bounded.GetText(), "");  // the bound ran out
    lateSource.OpenGate();
    lateSource.WaitUntil(&GatedSource::closed);
    EXPECT_EQ(bounded.GetText(), "PCI\\VEN_10DE&2");
    EXPECT_EQ(lateSource.openCalls, 1);
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
