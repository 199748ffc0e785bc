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

// Every case runs against a store of its own (each IsolateUserStore call starts a fresh one); Put
// and Read reach its values without the library.
struct UserStoreTest : ::testing::Test {
    void TearDown() override { qz_test::RestoreUserStore(); }
    static const char* Name(const char* key) { return key == kHardware ? "mid_2" : "mid"; }
    static void Put(const char* key, const Bytes& bytes) {
        if (bytes)
            qz_test::WriteUserStoreValue(key, Name(key), *bytes);
    }
    static Bytes Read(const char* key) {
        std::string bytes;
        return qz_test::ReadUserStoreValue(key, Name(key), &bytes) ? Bytes(bytes) : std::nullopt;
    }
};

TEST_F(UserStoreTest, MachineIdPrecedenceAndRepair) {
    const std::string fresh = DigestMachineText("hardware"), fits = kDigits.substr(1);
    // Old value, new value, id, old and new value after (a rewrite drops bytes after zero); `fresh`
    // is the id derived when no value is kept.
    // clang-format off
    const std::tuple<Bytes, Bytes, std::string, Bytes, Bytes> cases[] = {
        // clean profile; a new value of 33 bytes
        {{}, {}, fresh, Z(fresh), Z(fresh)}, {{}, Z(kDigits), fresh, Z(fresh), Z(fresh)},
        // old only; 32 bytes fit
        {"o\0x"s, {}, "o", "o\0x"s, Z("o")}, {Z(fits), {}, fits, Z(fits), Z(fits)},
        // new only; an old value of 33 bytes
        {{}, "n\0x"s, "n", Z("n"), "n\0x"s}, {Z(kDigits), "n\0x"s, "n", Z("n"), "n\0x"s},
        // both differ; both equal
        {Z("o"), Z("n"), "o", Z("o"), Z("o")}, {"o\0x"s, "o\0x"s, "o", "o\0x"s, "o\0x"s},
        // differ after zero; the old one empty
        {"o\0x"s, "o\0y"s, "o", "o\0x"s, Z("o")}, {Z(""), Z("n"), "", Z(""), Z("")}};
    // clang-format on
    for (const auto& [old, now, id, oldAfter, newAfter] : cases) {
        SCOPED_TRACE(testing::PrintToString(old) + " | " + testing::PrintToString(now));
        qz_test::IsolateUserStore();
        Put(kOld, old);
        Put(kNew, now);
        int derivations = 0;
        EXPECT_EQ(ObtainStoredMachineId([&] { return ++derivations, fresh; }), id);
        EXPECT_EQ(derivations, id == fresh ? 1 : 0);
        EXPECT_EQ(std::make_pair(Read(kOld), Read(kNew)), std::make_pair(oldAfter, newAfter));
    }
}

struct FakeProbes : HardwareProbes {
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

    bool serviceOk = true;
    int closes = 0;
};

TEST_F(UserStoreTest, HardwareIdSourcesAndCache) {
    const std::string service = DigestMachineText("cpu|adapter|disk|bios|board");
    const std::string fallback = DigestMachineText("cpunetbiosidentityfirmware") + "-";
    // service reached, kept value (without its zero: shows a rewrite), id (written unless kept)
    // clang-format off
    const std::tuple<bool, Bytes, std::string> cases[] = {
        {true, {}, service}, {true, Z(kDigits), service}, {true, Z(service + "-"), service},
        {true, service, service},
        {false, {}, fallback}, {false, Z(kDigits), kDigits}, {false, kDigits, kDigits},
        {false, Z(kDigits + "-"), kDigits + "-"}, {false, Z(kDigits + "-a"), fallback},
        {false, kDigits + "-a", fallback}, {false, Z("0123456789ABCDEF0123456789ABCDEF"), fallback},
        {false, Z(kDigits.substr(1)), fallback}, {false, Z(kDigits.substr(1) + "g"), fallback}};
    // clang-format on
    for (const auto& [serviceOk, kept, id] : cases) {
        SCOPED_TRACE(testing::Message() << serviceOk << " " << kept.value_or("(none)"));
        qz_test::IsolateUserStore();
        Put(kHardware, kept);
        FakeProbes probes;
        probes.serviceOk = serviceOk;
        EXPECT_EQ(BuildHardwareId(probes), id);
        EXPECT_EQ(probes.closes, serviceOk ? 1 : 0);
        EXPECT_EQ(Read(kHardware), kept && kept->c_str() == id ? kept : Z(id));
    }
}

}  // namespace
}  // namespace qzdata_report_kelvo
