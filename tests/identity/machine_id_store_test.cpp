#include "identity/machine_id_store.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <regex>
#include <string>
#include <utility>
#include <vector>

#include "codec/md5.h"
#include "identity/hardware_id_store.h"
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

std::string Z(const std::string& text) {
    return text + '\0';
}

std::string Md5(const std::string& text) {
    Md5Context md5;
    md5.Start(text);
    return md5.HexDigest();
}

// Every test runs against a store of its own under a temporary HOME.
class UserStoreTest : public ::testing::Test {
  protected:
    void SetUp() override {
        for (const char* name : {"HOME", "XDG_CONFIG_HOME"}) {
            const char* value = std::getenv(name);
            saved.emplace_back(name, value ? Bytes(value) : std::nullopt);
        }
        char pattern[] = "/tmp/qz_user_store_XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        home = pattern;
        setenv("HOME", pattern, 1);
        unsetenv("XDG_CONFIG_HOME");
    }
    void TearDown() override {
        for (const auto& [name, value] : saved) {
            value ? setenv(name.c_str(), value->c_str(), 1) : unsetenv(name.c_str());
        }
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
    // A value that is rewritten loses the bytes after its zero.
    const struct {
        const char* name;
        Bytes old, now;
        std::string id;
        Bytes oldAfter, newAfter;
    } cases[] = {
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
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        fs::remove_all(home + "/.config");
        Put(kOld, c.old);
        Put(kNew, c.now);
        int derivations = 0;
        EXPECT_EQ(ObtainStoredMachineId([&] { return ++derivations, derived; }), c.id);
        EXPECT_EQ(derivations, c.id == derived ? 1 : 0);
        EXPECT_EQ(Read(kOld), c.oldAfter);
        EXPECT_EQ(Read(kNew), c.newAfter);
    }
}

TEST_F(UserStoreTest, FilesArePrivateAndWrittenWhole) {
    ObtainStoredMachineId([] { return std::string("d"); });
    for (const char* folder :
         {"", "software", "software/norvik", "software/norvik/qzdata_report"}) {
        EXPECT_EQ(fs::status(Path(folder)).permissions(), fs::perms::owner_all) << folder;
    }
    EXPECT_EQ(fs::status(Path(kOld)).permissions(), fs::perms::owner_read | fs::perms::owner_write);
    const fs::directory_iterator entries(Path("software/norvik/qzdata_report"));
    EXPECT_EQ(std::distance(begin(entries), end(entries)), 1);

    setenv("XDG_CONFIG_HOME", "relative", 1);
    EXPECT_EQ(ObtainStoredMachineId([] { return std::string("e"); }), "d");
    setenv("XDG_CONFIG_HOME", (home + "/xdg").c_str(), 1);
    EXPECT_EQ(ObtainStoredMachineId([] { return std::string("e"); }), "e");
    EXPECT_TRUE(fs::exists(home + "/xdg/software/norvik/qzdata_report_kelvo/mid"));
}

class FakeProbes : public HardwareProbes {
  public:
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
    // A kept value without its zero shows whether it was written again.
    const struct {
        bool serviceOk;
        Bytes kept;
        std::string id;  // kept as it is when equal to `kept`'s text, else written with a zero
    } cases[] = {
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
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.serviceOk << " " << c.kept.value_or("(none)"));
        fs::remove_all(home + "/.config");
        Put(kHardware, c.kept);
        FakeProbes probes(c.serviceOk);
        EXPECT_EQ(BuildHardwareId(probes), c.id);
        EXPECT_EQ(probes.closes, c.serviceOk ? 1 : 0);
        const bool kept = c.kept && c.kept->c_str() == c.id;
        EXPECT_EQ(Read(kHardware), kept ? c.kept : Z(c.id));
    }
}

// This machine's own probes: two processes in a row with one home report the same ids, each
// of 32 lower-case hex digits, and no probe holds the caller past its bound.
TEST_F(UserStoreTest, TwoRunsOnThisMachineReportTheSameIds) {
    if (const char* out = std::getenv("QZ_TEST_IDS_OUT")) {
        setenv("HOME", std::getenv("QZ_TEST_IDS_HOME"), 1);  // the parent's, not this fixture's
        const auto start = std::chrono::steady_clock::now();
        std::string hardwareId;
        HardwareIdStore::Instance().Get(hardwareId);
        const std::string machineId = ObtainStoredMachineId();
        std::ofstream(out) << machineId << ' ' << hardwareId << ' '
                           << std::chrono::duration_cast<std::chrono::milliseconds>(
                                  std::chrono::steady_clock::now() - start)
                                  .count();
        return;
    }
    std::vector<std::string> runs;
    for (int run = 0; run < 2; ++run) {
        const std::string out = home + "/ids" + std::to_string(run);
        const std::string command = "QZ_TEST_IDS_HOME=" + home + " QZ_TEST_IDS_OUT=" + out +
                                    " /proc/" + std::to_string(getpid()) +
                                    "/exe --gtest_filter=UserStoreTest.TwoRuns* >/dev/null";
        ASSERT_EQ(0, std::system(command.c_str()));
        std::string machineId, hardwareId;
        long milliseconds = -1;
        std::ifstream(out) >> machineId >> hardwareId >> milliseconds;
        EXPECT_TRUE(std::regex_match(machineId + hardwareId, std::regex("[0-9a-f]{64}")))
            << machineId << " " << hardwareId;
        EXPECT_TRUE(milliseconds >= 0 && milliseconds < 4000) << milliseconds;
        runs.push_back(machineId + hardwareId);
    }
    EXPECT_EQ(runs[0], runs[1]);
    EXPECT_TRUE(Read(kOld) == Z(runs[0].substr(0, 32)) && Read(kHardware) == Z(runs[0].substr(32)));
}

}  // namespace

}  // namespace qzdata_report_kelvo
