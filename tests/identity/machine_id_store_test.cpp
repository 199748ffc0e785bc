#include "identity/machine_id_store.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "identity/hardware_id_store.h"
#include "identity/probe_text.h"
#include "identity/probes.h"

namespace qzdata_report_kelvo {
namespace {

namespace fs = std::filesystem;
using namespace std::string_literals;
using Bytes = std::optional<std::string>;  // a stored value's bytes; nullopt: no value

const char kOld[] = "software/norvik/qzdata_report/mid";
const char kNew[] = "software/norvik/qzdata_report_kelvo/mid";
const char kHardware[] = "software/norvik/datareportsdk/mid_2";
const std::string kDigits = "0123456789abcdef0123456789abcdef";

const auto Z = [](const std::string& text) { return text + '\0'; };
const auto Md5 = DigestMachineText;

// Every test runs against a store of its own under a temporary HOME.
struct UserStoreTest : ::testing::Test {
    void SetUp() override {
        for (const char* name : {"HOME", "XDG_CONFIG_HOME"})
            saved.emplace_back(name, std::getenv(name) ? Bytes(std::getenv(name)) : std::nullopt);
        char pattern[] = "/tmp/qz_user_store_XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        home = pattern;
        setenv("HOME", pattern, 1);
        unsetenv("XDG_CONFIG_HOME");
    }
    void TearDown() override {
        for (const auto& [name, value] : saved)
            value ? setenv(name.c_str(), value->c_str(), 1) : unsetenv(name.c_str());
        fs::remove_all(home);
    }
    std::string Path(const std::string& value) const { return home + "/.config/" + value; }
    void Put(const std::string& value, const Bytes& bytes) {
        if (bytes) {
            fs::create_directories(fs::path(Path(value)).parent_path());
            std::ofstream(Path(value), std::ios::binary) << *bytes;
        }
    }
    Bytes Read(const std::string& value) const {
        std::ifstream in(Path(value), std::ios::binary);
        return in ? Bytes(std::string(std::istreambuf_iterator<char>(in), {})) : std::nullopt;
    }

    std::vector<std::pair<std::string, Bytes>> saved;
    std::string home;
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
        fs::remove_all(home + "/.config");
        Put(kOld, old);
        Put(kNew, now);
        int derivations = 0;
        EXPECT_EQ(ObtainStoredMachineId([&] { return ++derivations, derived; }), id);
        EXPECT_EQ(derivations, id == derived ? 1 : 0);
        EXPECT_EQ(Read(kOld), oldAfter);
        EXPECT_EQ(Read(kNew), newAfter);
    }
}

TEST_F(UserStoreTest, FilesArePrivateAndWrittenWhole) {
    ObtainStoredMachineId([] { return std::string("d"); });
    for (const char* folder : {"", "software", "software/norvik", "software/norvik/qzdata_report"})
        EXPECT_EQ(fs::status(Path(folder)).permissions(), fs::perms::owner_all) << folder;
    EXPECT_EQ(fs::status(Path(kOld)).permissions(), fs::perms::owner_read | fs::perms::owner_write);
    const fs::directory_iterator entries(Path("software/norvik/qzdata_report"));
    EXPECT_EQ(std::distance(begin(entries), end(entries)), 1);
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
        fs::remove_all(home + "/.config");
        Put(kHardware, kept);
        FakeProbes probes(serviceOk);
        EXPECT_EQ(BuildHardwareId(probes), id);
        EXPECT_EQ(probes.closes, serviceOk ? 1 : 0);
        EXPECT_EQ(Read(kHardware), kept && kept->c_str() == id ? kept : Z(id));
    }
}

}  // namespace
}  // namespace qzdata_report_kelvo
