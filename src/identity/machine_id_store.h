// The second-generation machine id ("mid") as this user keeps it in the per-user store.
#pragma once

#include <functional>
#include <string>

namespace qzdata_report_kelvo {

// Computes the machine id afresh from the hardware.
using MachineIdDerivation = std::function<std::string()>;

// The id kept under the first machine-id key, else the one kept under the second key, else
// `derive()`; a kept id counts up to its first zero byte, and an empty id is a valid result. Then
// brings the store in step: the first key gets the id when it held none, and the second key when
// both held none, or when the first held one and the second holds none or a different one. A key
// that only the second held is left as it is. Store failures are never reported: they only
// decide which branch is taken, and the result stands whether or not the writes succeed.
// `derive` runs only when neither key holds an id. Blocks as long as `derive` does; has no lock
// of its own, so calls must not overlap.
std::string ObtainStoredMachineId(const MachineIdDerivation& derive);

// The same with DeriveMachineId. The report worker calls it first thing.
std::string ObtainStoredMachineId();

}  // namespace qzdata_report_kelvo
