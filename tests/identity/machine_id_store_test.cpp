#include "identity/machine_id_store.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <tuple>

#include "identity/hardware_id_store.h"
#include "identity/probe_text.h"
#include "identity/probes.h"
#include "support/test_platform.h"

namespace qzdata_report_kelvo {
namespace {

using namespace std::string_literals;
using Bytes = std::optional<std::string>;  // a stored value's bytes; nullopt: no value

const char kOld[] = "SOFTWARE\\norvik\\qzdata_report";
const char kNew[] = "SOFTWARE\\norvik\\qzdata_report_kelvo";
const char kHardware[] = "Software\\norvik\\datareportsdk";
const std::string kDigits = "0123456789abcdef0123456789abcdef";

const auto Z = [](const std::string& text) { return text + '\0'; };
const auto Md5 = DigestMachineText;

// Every test runs against a store of its own; Put and Read reach its values without the library.
struct UserStoreTest : ::testing::Test {
    void SetUp() override { qz_test::IsolateUserStore(); }
    void TearDown() override { qz_test::RestoreUserStore(); }
    static void Put(const char* key, const Bytes& bytes) {
        if (bytes)
            qz_test::WriteUserStoreValue(key, key == kHardware ? "mid_2" : "mid", *bytes);
    }
    static Bytes Read(const char* key) {
        std::string bytes;
        return qz_test::ReadUserStoreValue(key, key == kHardware ? "mid_2" : "mid", &bytes)
                   ? Bytes(bytes)
                   : std::nullopt;
    }
};

TEST_F(UserStoreTest, MachineIdPrecedenceAndRepair) {
    const std::string derived = Md5("hardware"), fits = kDigits.substr(1);
    // name, old value, new value, id, old and new value after (a rewrite drops bytes after zero)
    const std::tuple<const char*, Bytes, Bytes, std::string, Bytes, Bytes> cases[] = {
        {"clean profile", {}, {}, derived, Z(derived), Z(derived)},
        {"old only", "o\0x"s, {}, "o", "o\0x"s, Z("o")},
        {"new only", {}, "n\0x"s, "n", Z("n"), "n\0x"s},
        {"both differ", Z("o"), Z("n"), "o", Z("o"), Z("o")},
        {"both equal", "o\0x"s, "o\0x"s, "o", "o\0x"s, "o\0x"s},
        {"differ after zero", "o\0x"s, "o\0y"s, "o", "o\0x"s, Z("o")},
        {"32 bytes fit", Z(fits), {}, fits, Z(fits), Z(fits)},
        {"old of 33 bytes", Z(kDigits), "n\0x"s, "n", Z("n"), "n\0x"s},
        {"new of 33 bytes", {}, Z(kDigits), derived, Z(derived), Z(derived)},
        {"old empty", Z(""), Z("n"), "", Z(""), Z("")},
    };
    for (const auto& [name, old, now, id, oldAfter, newAfter] : cases) {
        SCOPED_TRACE(name);
        qz_test::IsolateUserStore();
        Put(kOld, old);
        Put(kNew, now);
        int derivations = 0;
        EXPECT_EQ(ObtainStoredMachineId([&] { return ++derivations, derived; }), id);
        EXPECT_EQ(derivations, id == derived ? 1 : 0);
        EXPECT_EQ(Read(kOld), oldAfter);
        EXPECT_EQ(Read(kNew), newAfter);
    }
}

struct FakeProbes : HardwareProbes {
    explicit FakeProbes(bool serviceOk) : serviceOk(serviceOk) {}
    bool OpenWmi() override { return serviceOk; }
    void CloseWmi() override { ++closes; }
    std::string GetCpuIdText() override { return "cpu"; }
    std::string GetWmiAdapterText() override { return "adapter"; }
    std::string GetWmiDiskText() override { return "disk"; }
    std::string GetWmiBiosText() override { return "bios"; }
    std::string GetWmiBaseBoardText() override { return "board"; }
    std::string GetNetbiosAddressText() override { return "netbios"; }
    std::string GetDiskIdentityText() override { return "identity"; }
    std::string GetFirmwareDateText() override { return "firmware"; }

    const bool serviceOk;
    int closes = 0;
};

TEST_F(UserStoreTest, HardwareIdSourcesAndCache) {
    const std::string service = Md5("cpu|adapter|disk|bios|board");
    const std::string fallback = Md5("cpunetbiosidentityfirmware") + "-";
    // service reached, kept value (without its zero: shows a rewrite), id (written unless kept)
    const std::tuple<bool, Bytes, std::string> cases[] = {
        {true, {}, service},
        {true, Z(kDigits), service},
        {true, Z(service + "-"), service},
        {true, service, service},
        {false, {}, fallback},
        {false, Z(kDigits), kDigits},
        {false, Z(kDigits + "-"), kDigits + "-"},
        {false, kDigits, kDigits},
        {false, Z("0123456789ABCDEF0123456789ABCDEF"), fallback},
        {false, Z(kDigits.substr(1)), fallback},
        {false, Z(kDigits.substr(1) + "g"), fallback},
        {false, Z(kDigits + "-a"), fallback},
        {false, kDigits + "-a", fallback},
    };
    for (const auto& [serviceOk, kept, id] : cases) {
        SCOPED_TRACE(testing::Message() << serviceOk << " " << kept.value_or("(none)"));
        qz_test::IsolateUserStore();
        Put(kHardware, kept);
        FakeProbes probes(serviceOk);
        EXPECT_EQ(BuildHardwareId(probes), id);
        EXPECT_EQ(probes.closes, serviceOk ? 1 : 0);
        EXPECT_EQ(Read(kHardware), kept && kept->c_str() == id ? kept : Z(id));
    }
}

}  // namespace
}  // namespace qzdata_report_kelvo
