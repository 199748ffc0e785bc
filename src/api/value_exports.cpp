#include <cstdint>
#include <map>
#include <string>

#include "api/guard.h"
#include "api/legacy_bridge.h"
#include "qzdata_report.h"

namespace qzdata_report_kelvo {

namespace {

// Made by the first write and never destroyed, so that a host may still read them while the
// process ends. No lock, by contract.
template <class Value>
std::map<std::string, Value>*& ValueMap() {
    static std::map<std::string, Value>* map = nullptr;
    return map;
}

template <class Value>
void StoreValue(const std::string& key, const Value& value) {
    auto*& map = ValueMap<Value>();
    if (map == nullptr) {
        map = new std::map<std::string, Value>();
    }
    (*map)[key] = value;
}

template <class Value>
const Value* FindValue(const std::string& key) {
    const auto* map = ValueMap<Value>();
    if (map == nullptr) {
        return nullptr;
    }
    const auto found = map->find(key);
    return found == map->end() ? nullptr : &found->second;
}

template <class Value>
Value ValueOrEmpty(const std::string& key) {
    const Value* value = FindValue<Value>(key);
    return value == nullptr ? Value() : *value;
}

}  // namespace

void SetValue(const std::string& key, const std::string& value) {
    CallLegacy(&LegacyFunctions::SetValue, key, value);
    GuardedVoid([&] { StoreValue(key, value); });
}

std::string GetValue(const std::string& key) {
    return Guarded(std::string(), [&] { return ValueOrEmpty<std::string>(key); });
}

void SetWideValue(const std::string& key, const std::wstring& value) {
    CallLegacy(&LegacyFunctions::SetWideValue, key, value);
    GuardedVoid([&] { StoreValue(key, value); });
}

std::wstring GetWideValue(const std::string& key) {
    return Guarded(std::wstring(), [&] { return ValueOrEmpty<std::wstring>(key); });
}

void SetDWORD(const std::string& key, unsigned long value) {
    CallLegacy(&LegacyFunctions::SetDWORD, key, value);
    GuardedVoid([&] { StoreValue(key, static_cast<uint32_t>(value)); });
}

bool GetDWORD(const std::string& key, unsigned long& value) {
    return Guarded(false, [&] {
        const uint32_t* stored = FindValue<uint32_t>(key);
        if (stored == nullptr) {
            return false;
        }
        value = *stored;
        return true;
    });
}

}  // namespace qzdata_report_kelvo
