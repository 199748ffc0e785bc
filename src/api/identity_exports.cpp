#include "api/guard.h"
#include "api/legacy_bridge.h"
#include "identity/os_version.h"
#include "identity/probes.h"
#include "qzdata_report.h"
#include "report/report_object.h"

namespace qzdata_report_kelvo {

bool SetMachineId(const std::string& id) {
    CallLegacy(&LegacyFunctions::SetMachineId, id);
    return Guarded(false, [&] { return GetReportObject()->SetMachineId(id); });
}

std::string TryGetMachineId() {
    return Guarded(std::string(), [] { return GetReportObject()->TryGetMachineId(); });
}

std::string GetMachineIdTimeout(unsigned int timeoutMs) {
    return Guarded(std::string(), [&] {
        ReportObject* object = GetReportObject();
        // Before Run no worker resolves the id: the caller does, whatever the time-out.
        if (object->GetObjectState() < kRunning) {
            return object->GetMachineId();
        }
        return object->GetMachineIdTimeout(timeoutMs);
    });
}

void AddMachineIdCallback(MachineIdCallback callback, void* context) {
    GuardedVoid([&] { GetReportObject()->AddMachineIdCallback(callback, context); });
}

std::string GetOsPlatformVersion() {
    return Guarded(std::string(),
                   [] { return qzdata_report_kelvo_internal::GetOsPlatformVersion(); });
}

}  // namespace qzdata_report_kelvo

namespace qzdata_report_kelvo_internal {

using qzdata_report_kelvo::Guarded;

std::string GetMachineId() {
    return Guarded(std::string(), [] { return qzdata_report_kelvo::DeriveMachineId(); });
}

std::string GetOsPlatformVersion() {
    return Guarded(std::string(), [] { return qzdata_report_kelvo::GetOsPlatformVersionText(); });
}

std::string getMacAllInfo() {
    return Guarded(std::string(), [] { return qzdata_report_kelvo::GetMacAllInfoText(); });
}

}  // namespace qzdata_report_kelvo_internal
