// The first-generation hardware id ("kelvo_mid") of this machine, computed once per process.
#pragma once

#include <string>

#include "runtime/critical_section.h"

namespace qzdata_report_kelvo {

class HardwareProbes;

// Computes the hardware id: the MD5 (32 lower-case hex digits) of the management-service facts
// when the service answers; otherwise the id kept for this user when there is a valid one, else
// the MD5 of the fallback facts followed by "-". Keeps the result for this user when it differs
// from the kept one; a failed write is ignored. Opens and closes its own session of `probes`.
// Never fails: with nothing found it digests an empty text. Blocks as long as the probes take;
// calls with the same `probes` must not overlap.
std::string BuildHardwareId(HardwareProbes& probes);

// Process-wide, made on first use and never released. Any thread; callers serialise on its lock
// while the first call computes.
class HardwareIdStore {
  public:
    static HardwareIdStore& Instance();

    // `id` becomes the hardware id; the first call computes it with the platform's probes, later
    // calls copy it.
    void Get(std::string& id);

  private:
    HardwareIdStore() = default;

    CCriticalSection lock;
    bool computed = false;
    std::string hardwareId;
};

}  // namespace qzdata_report_kelvo
