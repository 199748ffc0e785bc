// The hardware facts that machine ids are made of, each as a text. A probe never fails
// outwardly: when it finds nothing its text is empty. The exact bytes matter, because the texts
// are digested.
#pragma once

#include <string>

namespace qzdata_report_kelvo {

// The probes of the first-generation hardware id, as BuildHardwareId composes them. The
// management-service facts (the Wmi... texts) need an open session: OpenWmi first, CloseWmi
// after. Called on the report worker, under the lock of HardwareIdStore.
class HardwareProbes {
  public:
    virtual ~HardwareProbes() = default;

    // Whether the management service answers; closes an earlier session first.
    virtual bool OpenWmi() = 0;
    virtual void CloseWmi() = 0;
    virtual std::string GetCpuIdText() = 0;
    virtual std::string GetWmiAdapterText() = 0;
    virtual std::string GetWmiDiskText() = 0;
    virtual std::string GetWmiBiosText() = 0;
    virtual std::string GetWmiBaseBoardText() = 0;
    virtual std::string GetNetbiosAddressText() = 0;
    virtual std::string GetDiskIdentityText() = 0;
    virtual std::string GetFirmwareDateText() = 0;
};

// The probes of this platform. Process-wide; never destroyed.
HardwareProbes& DefaultHardwareProbes();

// The second-generation machine id, computed afresh from the hardware: the MD5 (32 lower-case
// hex digits) of the CPU text, getMacAllInfo, the WMI serials, the disk identity and the
// firmware date, joined without separators; empty when all of them are. May block up to about
// 3 s (the WMI serials' bound) plus the other probes. Any thread.
std::string DeriveMachineId();

// The network adapter text of the second generation (the export getMacAllInfo).
std::string GetMacAllInfoText();

}  // namespace qzdata_report_kelvo
