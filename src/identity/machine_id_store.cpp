#include "identity/machine_id_store.h"

#include <cstdint>
#include <cstring>

#include "identity/constants.h"
#include "identity/probes.h"
#include "port/user_store.h"

namespace qzdata_report_kelvo {

namespace {

// One key's copy of the id. The key stays open for the write that may follow.
struct KeptMachineId {
    port::UserKey* key = nullptr;
    // Zeroed, so that a value without a terminating zero still ends inside the buffer, and two
    // copies compare equal beyond their texts.
    char value[identity::kMachineIdBufferSize] = {};
    bool found = false;
};

// The type is not checked. A value that fills the whole buffer counts as absent, as one that
// does not fit: so a kept id of 32 characters with its zero is derived again and rewritten.
void ReadKeptMachineId(const char* path, KeptMachineId& kept) {
    if (!port::OpenUserKey(path, port::UserKeyAccess::kAll, &kept.key)) {
        return;
    }
    uint32_t size = sizeof(kept.value);
    kept.found = port::QueryUserValue(kept.key, identity::kMachineIdValueName, nullptr, kept.value,
                                      &size) == port::UserQueryResult::kSuccess &&
                 size < sizeof(kept.value);
}

std::string KeptText(const KeptMachineId& kept) {
    return std::string(kept.value, strnlen(kept.value, sizeof(kept.value)));
}

void WriteKeptMachineId(const char* path, KeptMachineId& kept, const std::string& id) {
    if (kept.key == nullptr && !port::CreateUserKey(path, port::UserKeyAccess::kAll, &kept.key)) {
        return;
    }
    port::SetUserTextValue(kept.key, identity::kMachineIdValueName, id.c_str(),
                           static_cast<uint32_t>(id.size() + 1));
}

}  // namespace

std::string ObtainStoredMachineId(const MachineIdDerivation& derive) {
    KeptMachineId first;
    KeptMachineId second;
    ReadKeptMachineId(identity::kMachineIdKeyPath, first);
    ReadKeptMachineId(identity::kMachineIdSecondKeyPath, second);

    std::string id;
    if (first.found) {
        id = KeptText(first);
    } else if (second.found) {
        id = KeptText(second);
    } else {
        id = derive();
    }

    if (!first.found) {
        WriteKeptMachineId(identity::kMachineIdKeyPath, first, id);
    }
    port::CloseUserKey(first.key);

    // The first key's copy repairs the second one; the second restores the first, and is then
    // already right.
    const bool secondStale =
        first.found &&
        (!second.found || std::memcmp(first.value, second.value, sizeof(first.value)) != 0);
    if ((!first.found && !second.found) || secondStale) {
        WriteKeptMachineId(identity::kMachineIdSecondKeyPath, second, id);
    }
    port::CloseUserKey(second.key);
    return id;
}

std::string ObtainStoredMachineId() {
    return ObtainStoredMachineId(DeriveMachineId);
}

}  // namespace qzdata_report_kelvo
