// The smallest complete host: sets the library up, reports a few events, and shuts it down.
// Collector URLs here are loopback addresses; nothing needs to listen on them.
#include <qzdata_report.h>

#include <cstdio>
#include <string>
#include <vector>

namespace qr = qzdata_report_kelvo;

int main() {
    std::printf("library version: %s\n", qr::GetSDKVersion().c_str());

    std::string replaced;
    qzdata_report_kelvo_internal::StrReplace(replaced, "OTHER/OTHER-channel", "OTHER", "null");
    std::printf("StrReplace: %s\n", replaced.c_str());

    // Descriptions of event id segments, used when a report names no description.
    const qr::EidDescPtrPair descriptions[] = {
        {"click", L"Click"}, {"menu", L"Main menu"}, {nullptr, nullptr}};
    qr::AddEidDescList(descriptions);

    const bool ready =
        qr::Init(L"http://127.0.0.1/c.gif", "pc", "minimal-host", 5000, nullptr, L"", 7, false);
    std::printf("Init: %s, session %s\n", ready ? "ok" : "refused", qr::GetSessionId().c_str());
    if (!ready) {
        return 1;
    }
    qr::Run();

    int accepted = 0;
    accepted += qr::SendCustomEvent("click", "", "first click", 120, true) ? 1 : 0;
    accepted += qr::PostEventWithDur("load", 350, "page load") ? 1 : 0;
    accepted += qr::PostEventWithSrc("click", "menu", nullptr) ? 1 : 0;
    accepted += qr::SendEventWithInt("level", 3, nullptr) ? 1 : 0;
    accepted += qr::SendSimpleEvent("menu", "file", "open", nullptr, -1) ? 1 : 0;
    accepted += qr::SendErrorEvent("io", "disk full", "write") ? 1 : 0;
    const std::vector<qr::ReportRecord> records{{{"act", "custom"}, {"eid", "raw"}}};
    accepted += qr::PostImmediately(L"http://127.0.0.1/c.gif", records, nullptr, nullptr) ? 1 : 0;

    std::string escaped;
    qr::EidEscape("a.b/c d", &escaped, true);
    std::printf("reports accepted: %d of 7; EidEscape: %s\n", accepted, escaped.c_str());

    qr::Exit(true, 3000);
    std::printf("exited\n");
    return accepted == 7 ? 0 : 1;
}
