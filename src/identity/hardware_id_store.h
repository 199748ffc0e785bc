// The first-generation hardware id ("kelvo_mid") of this machine, computed once per process.
#pragma once

#include <string>

#include "runtime/critical_section.h"

namespace qzdata_report_kelvo {

// Process-wide, made on first use and never released. Any thread; callers serialise on its lock
// while the first call computes.
class HardwareIdStore {
  public:
    static HardwareIdStore& Instance();

    // `id` becomes the hardware id; the first call computes it, later calls copy it.
    void Get(std::string& id);

  private:
    HardwareIdStore() = default;

    CCriticalSection lock;
    bool computed = false;
    std::string hardwareId;
};

// The second-generation machine id ("mid") as kept for this user, or derived and kept when none
// is. May block as long as the hardware probes take; the report worker calls it first thing.
std::string ObtainStoredMachineId();

}  // namespace qzdata_report_kelvo
