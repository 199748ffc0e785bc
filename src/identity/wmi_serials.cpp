#include "identity/wmi_serials.h"

#include "identity/probe_constants.h"
#include "identity/probe_text.h"

namespace qzdata_report_kelvo {

namespace {

constexpr port::SerialFact kQueriedFacts[] = {
    port::SerialFact::kVolumeSerial, port::SerialFact::kSystemSerial,
    port::SerialFact::kDiskDeviceIds, port::SerialFact::kSoundDeviceIds,
    port::SerialFact::kVideoDeviceIds};

class PlatformWmiSerialsSource : public WmiSerialsSource {
  public:
    bool Open() override { return port::OpenManagementSession(); }
    void Query(port::SerialFact fact, std::vector<std::string>& values) override {
        port::QuerySerialFact(fact, values);
    }
    void Close() override { port::CloseManagementSession(); }
};

}  // namespace

WmiSerialsProbe::WmiSerialsProbe(WmiSerialsSource& source, uint32_t boundMs)
    : source(source), boundMs(boundMs) {}

WmiSerialsProbe::~WmiSerialsProbe() {
    thread.join();
}

std::string WmiSerialsProbe::GetText() {
    State expected = kNotStarted;
    if (state.compare_exchange_strong(expected, kStarted)) {
        thread.start(&WmiSerialsProbe::ThreadMain, this);
        thread.wait(boundMs);
    }
    return GetState() == kReady ? text : std::string();
}

unsigned WmiSerialsProbe::ThreadMain(void* probe) {
    static_cast<WmiSerialsProbe*>(probe)->Read();
    return 0;
}

void WmiSerialsProbe::Read() {
    if (!source.Open()) {
        return;
    }
    // Every query starts from an empty text, so only the last fact reaches the id; the ids
    // already kept on machines are made so, and all the queries still run.
    std::string serials;
    std::vector<std::string> values;
    for (port::SerialFact fact : kQueriedFacts) {
        serials.clear();
        source.Query(fact, values);
        for (const std::string& value : values) {
            serials += value;
        }
    }
    text = serials;
    state.store(kReady, std::memory_order_release);
    source.Close();
}

std::string GetWmiSerialsText() {
    return NoThrowText([] {
        static WmiSerialsSource* source = new PlatformWmiSerialsSource();
        // Never destroyed: its thread may outlive every caller.
        static WmiSerialsProbe* probe = new WmiSerialsProbe(*source, identity::kWmiSerialsBoundMs);
        return probe->GetText();
    });
}

}  // namespace qzdata_report_kelvo
