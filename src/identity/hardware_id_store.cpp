#include "identity/hardware_id_store.h"

namespace qzdata_report_kelvo {

HardwareIdStore& HardwareIdStore::Instance() {
    static HardwareIdStore* store = new HardwareIdStore();
    return *store;
}

void HardwareIdStore::Get(std::string& id) {
    CScopedLock guard(lock);
    if (!computed) {
        // Until the hardware probes exist the id is empty, which the record format accepts.
        hardwareId.clear();
        computed = true;
    }
    id = hardwareId;
}

std::string ObtainStoredMachineId() {
    // Until the per-user store and the probes exist, the id is empty; an empty id counts as
    // known, so nothing waits on it.
    return std::string();
}

}  // namespace qzdata_report_kelvo
