#include "identity/hardware_id_store.h"

#include <cstdint>
#include <iterator>

#include "codec/md5.h"
#include "identity/constants.h"
#include "identity/probes.h"
#include "port/user_store.h"

namespace qzdata_report_kelvo {

namespace {

using Probe = std::string (HardwareProbes::*)();

bool IsLowerHexDigit(char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f');
}

// The kept id, or empty when there is none or it is not in the form this function writes.
std::string ReadKeptHardwareId() {
    port::UserKey* key = nullptr;
    if (!port::OpenUserKey(identity::kHardwareIdKeyPath, port::UserKeyAccess::kQuery, &key)) {
        return std::string();
    }
    char value[identity::kHardwareIdBufferSize] = {};
    uint32_t size = sizeof(value);
    port::UserValueType type = port::UserValueType::kNone;
    const bool read = port::QueryUserValue(key, identity::kHardwareIdValueName, &type, value,
                                           &size) == port::UserQueryResult::kSuccess;
    port::CloseUserKey(key);
    if (!read || type != port::UserValueType::kText || size < 1 || size > sizeof(value) ||
        value[sizeof(value) - 1] != '\0') {
        return std::string();
    }
    const std::string kept(value);
    if (kept.size() != identity::kHardwareIdDigits &&
        kept.size() != identity::kHardwareIdDigits + 1) {
        return std::string();
    }
    for (size_t i = 0; i < identity::kHardwareIdDigits; ++i) {
        if (!IsLowerHexDigit(kept[i])) {
            return std::string();
        }
    }
    return kept;
}

void WriteKeptHardwareId(const std::string& id) {
    port::UserKey* key = nullptr;
    if (port::CreateUserKey(identity::kHardwareIdKeyPath, port::UserKeyAccess::kWrite, &key)) {
        port::SetUserTextValue(key, identity::kHardwareIdValueName, id.c_str(),
                               static_cast<uint32_t>(id.size() + 1));
        port::CloseUserKey(key);
    }
}

// Each probe is called in turn: the order of the calls is the order of the texts.
std::string JoinProbeTexts(HardwareProbes& probes, const Probe* begin, const Probe* end,
                           const char* separator) {
    std::string text;
    for (const Probe* probe = begin; probe != end; ++probe) {
        if (probe != begin) {
            text += separator;
        }
        text += (probes.*(*probe))();
    }
    return text;
}

}  // namespace

std::string BuildHardwareId(HardwareProbes& probes) {
    static const Probe kServiceProbes[] = {
        &HardwareProbes::GetCpuIdText, &HardwareProbes::GetWmiAdapterText,
        &HardwareProbes::GetWmiDiskText, &HardwareProbes::GetWmiBiosText,
        &HardwareProbes::GetWmiBaseBoardText};
    static const Probe kFallbackProbes[] = {
        &HardwareProbes::GetCpuIdText, &HardwareProbes::GetNetbiosAddressText,
        &HardwareProbes::GetDiskIdentityText, &HardwareProbes::GetFirmwareDateText};

    std::string text;
    const bool serviceOk = probes.OpenWmi();
    if (serviceOk) {
        text = JoinProbeTexts(probes, std::begin(kServiceProbes), std::end(kServiceProbes),
                              identity::kHardwareTextSeparator);
        probes.CloseWmi();
    }
    const std::string kept = ReadKeptHardwareId();
    if (!serviceOk) {
        // The fallback facts need not be the ones the kept id was made of; keeping the id keeps
        // it stable across runs without the service.
        if (!kept.empty()) {
            return kept;
        }
        text = JoinProbeTexts(probes, std::begin(kFallbackProbes), std::end(kFallbackProbes), "");
    }
    Md5Context digest;
    digest.Start(text);
    std::string id = digest.HexDigest();
    if (!serviceOk) {
        // Marks the id as made from the fallback facts, so that a run with the service replaces it.
        id += identity::kFallbackMark;
    }
    if (id != kept) {
        WriteKeptHardwareId(id);
    }
    return id;
}

HardwareIdStore& HardwareIdStore::Instance() {
    static HardwareIdStore* store = new HardwareIdStore();
    return *store;
}

void HardwareIdStore::Get(std::string& id) {
    CScopedLock guard(lock);
    if (!computed) {
        hardwareId = BuildHardwareId(DefaultHardwareProbes());
        computed = true;
    }
    id = hardwareId;
}

}  // namespace qzdata_report_kelvo
