// A short session of a host, with every kind of report the library makes, against the collector
// of the deployment profile (tools/qzcollector plays it on loopback):
//
//   demo_host [--seconds N] [--not-sent FILE]
//
// It sets up its session, reports events of each kind, keeps running for N seconds (6 by
// default, so that a heartbeat falls in between) and exits. The machine id, the strategy and the
// self-reporting of the library work as they would in a real host. Each line it prints names a
// call and whether the library took the report.
#include <qzdata_report.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "host_loop.h"

namespace qr = qzdata_report_kelvo;

namespace {

int taken = 0;
int made = 0;

void Report(const char* call, bool result) {
    ++made;
    taken += result ? 1 : 0;
    std::printf("  %-28s %s\n", call, result ? "queued" : "refused");
}

void OnMachineId(const std::string& id, void* /*context*/) {
    std::printf("machine id known: %s\n", id.c_str());
}

}  // namespace

int main(int argc, char** argv) {
    int seconds = 6;
    std::wstring notSentPath;
    for (int i = 1; i + 1 < argc; i += 2) {
        if (std::strcmp(argv[i], "--seconds") == 0) {
            seconds = std::atoi(argv[i + 1]);
        } else if (std::strcmp(argv[i], "--not-sent") == 0) {
            const std::string path = argv[i + 1];
            notSentPath.assign(path.begin(), path.end());
        }
    }

    std::printf("library %s on %s\n", qr::GetSDKVersion().c_str(),
                qr::GetOsPlatformVersion().c_str());

    // Session information may come before Init; every record carries it.
    qr::SessionInfo session;
    session.channel = "demo-OTHER";
    session.run_source = "desktop";
    session.iver = "2.4.1";
    session.passport = "demo-user";
    session.uver = "2.4.1.100";
    session.local_language = "en-US";
    session.screen_resolution = "1920x1080";
    session.net_type = "wired";
    qr::PostSessionInfo(session);

    const qr::EidDescPtrPair descriptions[] = {
        {"settings", L"Settings dialog"}, {"export", L"Export"}, {nullptr, nullptr}};
    qr::AddEidDescList(descriptions);
    qr::AddMachineIdCallback(&OnMachineId, nullptr);

    const unsigned int heartbeatMs = 5000;
    const unsigned long allLifecycleEvents = 7;  // startup, endup, heartbeat
    if (!qr::Init(L"http://127.0.0.1:18080/c.gif", "pc", "demo-host", heartbeatMs, nullptr,
                  notSentPath, allLifecycleEvents, false)) {
        std::printf("Init refused\n");
        return 1;
    }
    std::printf("session %s\n", qr::GetSessionId().c_str());
    qr::PostEventStart(L"showup");
    qr::Run();

    std::printf("reports:\n");
    Report("SendCustomEvent", qr::SendCustomEvent("settings", "", "opened from menu", 120, true));
    Report("PostCustomEvent", qr::PostCustomEvent("export", "Export as CSV", "rows=42", -1, false));
    Report("SendErrorEvent", qr::SendErrorEvent("io", "disk full", "save"));
    Report("PostEventWithDur", qr::PostEventWithDur("load", 350, "document load"));
    Report("PostEventWithSrc", qr::PostEventWithSrc("settings", "toolbar", nullptr));
    Report("SendEventWithInt", qr::SendEventWithInt("level", 3, "level reached"));
    Report("SendSimpleEvent", qr::SendSimpleEvent("menu", "file", "open", nullptr, -1));

    qr::InfoCData info;
    info.game = L"chess";
    info.passport = L"demo-user";
    Report("PostCustomInfo", qr::PostCustomInfo(&info, L"lobby"));
    Report("PostErrorInfo", qr::PostErrorInfo(&info, 5, 2, L"connection lost"));
    Report("PostActionInfo", qr::PostActionInfo(L"chess", L"play-button"));
    Report("PostFailInfo", qr::PostFailInfo(L"login", 1, L"E42", L"wrong password"));
    Report("PostTimerInfo", qr::PostTimerInfo(L"startup-steps"));

    Report("PostOpenUrlEvent", qr::PostOpenUrlEvent(L"https://www.example.com/docs/start?x=1"));
    Report("PostReportUrlEvent", qr::PostReportUrlEvent(L"http://help.example.org/faq", "Help"));
    Report("PostUrlWithDur",
           qr::PostUrlWithDur("page", "http://shop.example.net/cart", "done", 800, "cart page"));
    Report("SendEventWithGameInfo",
           qr::SendEventWithGameInfo("play", "lobby", L"chess", L"s1", L"menu/quick", L""));

    RunHostLoopFor(std::chrono::milliseconds(200));
    Report("PostEventDurEnd", qr::PostEventDurEnd(L"showup", L"first window shown"));

    const std::string machineId = qr::GetMachineIdTimeout(3000);
    std::printf("machine id: %s\nderived afresh: %s\n", machineId.c_str(),
                qzdata_report_kelvo_internal::GetMachineId().c_str());

    std::printf("running %d s (heartbeat every %u ms)\n", seconds, heartbeatMs);
    RunHostLoopFor(std::chrono::seconds(seconds));
    qr::Exit(true, 3000);
    std::printf("reports queued: %d of %d\n", taken, made);
    return taken == made ? 0 : 1;
}
