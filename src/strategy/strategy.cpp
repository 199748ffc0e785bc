#include "strategy/strategy.h"

#include <limits>
#include <tuple>
#include <utility>

#include "codec/aes_blob_cipher.h"
#include "codec/crypto_library.h"
#include "deployment_config.h"
#include "runtime/timer.h"
#include "strategy/constants.h"
#include "strategy/field_reader.h"

namespace qzdata_report_kelvo {

namespace {

// Fields 1 to 28 of a plain text, read in full before anything is committed.
struct ParsedStrategy {
    std::vector<std::string> fallbackAddresses;
    std::vector<std::string> postFallbackAddresses;
    std::vector<std::string> spareFallbackAddresses;
    StoredStrategyFields stored;
    uint64_t number1 = 0;
    uint64_t number2 = 0;
    uint64_t number4 = 0;
};

// Reads a count of `countWidth` digits and that many length-prefixed entries; `take` receives
// each entry and reads whatever belongs to it. Empty entries are counted like any other: `take`
// decides whether they are kept.
template <class Take>
bool ReadEntries(StrategyFieldReader& reader, size_t countWidth, uint64_t maxLength, Take take) {
    uint64_t count = 0;
    if (!reader.ReadUnsigned(countWidth, count)) {
        return false;
    }
    for (uint64_t i = 0; i < count; ++i) {
        uint64_t length = 0;
        std::string entry;
        if (!reader.ReadUnsigned(strategy::kStringLengthWidth, length) || length > maxLength ||
            !reader.ReadString(static_cast<size_t>(length), entry) || !take(entry)) {
            return false;
        }
    }
    return true;
}

bool ReadAddressList(StrategyFieldReader& reader, std::vector<std::string>& list) {
    return ReadEntries(reader, strategy::kCountWidth, strategy::kMaxAddressLength,
                       [&list](const std::string& entry) {
                           if (!entry.empty()) {
                               list.push_back(entry);
                           }
                           return true;
                       });
}

bool ReadSet(StrategyFieldReader& reader, size_t countWidth, std::set<std::string>& set) {
    return ReadEntries(reader, countWidth, std::numeric_limits<uint64_t>::max(),
                       [&set](const std::string& entry) {
                           if (!entry.empty()) {
                               set.insert(entry);
                           }
                           return true;
                       });
}

bool ReadMap(StrategyFieldReader& reader, std::map<std::string, int32_t>& map) {
    return ReadEntries(reader, strategy::kCountWidth, std::numeric_limits<uint64_t>::max(),
                       [&reader, &map](const std::string& key) {
                           int64_t value = 0;
                           if (!reader.ReadSigned(strategy::kMapValueWidth, value)) {
                               return false;
                           }
                           if (!key.empty()) {
                               map[key] = static_cast<int32_t>(value);
                           }
                           return true;
                       });
}

bool ReadStrategyFields(StrategyFieldReader& reader, ParsedStrategy& out) {
    StoredStrategyFields& stored = out.stored;
    return ReadAddressList(reader, out.fallbackAddresses) &&
           ReadAddressList(reader, out.postFallbackAddresses) &&
           ReadAddressList(reader, out.spareFallbackAddresses) &&
           ReadSet(reader, strategy::kCountWidth, stored.specialActs) &&
           ReadSet(reader, strategy::kCountWidth, stored.stringSet2) &&
           ReadMap(reader, stored.intMap1) && ReadMap(reader, stored.intMap2) &&
           reader.ReadUnsigned(strategy::kNumberWidth, out.number1) &&
           reader.ReadUnsigned(strategy::kNumberWidth, out.number2) &&
           reader.ReadUnsigned(strategy::kNumberWidth, stored.number3) &&
           reader.ReadUnsigned(strategy::kNumberWidth, out.number4) &&
           reader.ReadUnsigned(strategy::kNumberWidth, stored.number5) &&
           reader.ReadUnsigned(strategy::kNumberWidth, stored.number6) &&
           ReadSet(reader, strategy::kLongCountWidth, stored.stringSet3) &&
           ReadSet(reader, strategy::kLongCountWidth, stored.stringSet4) &&
           ReadSet(reader, strategy::kLongCountWidth, stored.stringSet5) &&
           ReadSet(reader, strategy::kLongCountWidth, stored.stringSet6);
}

uint32_t SecondsToMilliseconds(uint64_t seconds) {
    return seconds >= strategy::kSecondsCap ? strategy::kMaxMilliseconds
                                            : static_cast<uint32_t>(seconds * 1000);
}

std::vector<std::string> ToVector(const char* const* begin, const char* const* end) {
    return std::vector<std::string>(begin, end);
}

}  // namespace

bool StoredStrategyFields::operator==(const StoredStrategyFields& other) const {
    auto fields = [](const StoredStrategyFields& f) {
        return std::tie(f.specialActs, f.stringSet2, f.intMap1, f.intMap2, f.number3, f.number5,
                        f.number6, f.stringSet3, f.stringSet4, f.stringSet5, f.stringSet6);
    };
    return fields(*this) == fields(other);
}

StrategyRouting DefaultRouting() {
    StrategyRouting routing;
    routing.hosts = StrategyHosts{
        deployment::kCollectorHost, deployment::kAuxHost1,     deployment::kAuxHost2,
        deployment::kStrategyHost,  deployment::kConfigHost,   deployment::kAuxHost3,
        deployment::kCollectorPort, deployment::kStrategyPort, deployment::kConfigPort};
    routing.fallbackAddresses = ToVector(std::begin(deployment::kFallbackAddresses),
                                         std::end(deployment::kFallbackAddresses));
    routing.postFallbackAddresses = ToVector(std::begin(deployment::kPostFallbackAddresses),
                                             std::end(deployment::kPostFallbackAddresses));
    routing.spareFallbackAddresses = ToVector(std::begin(deployment::kSpareFallbackAddresses),
                                              std::end(deployment::kSpareFallbackAddresses));
    return routing;
}

CStrategy::CStrategy() : keepAliveLimit(strategy::kDefaultKeepAliveLimit) {
    stored.specialActs.insert(std::begin(strategy::kDefaultSpecialActs),
                              std::end(strategy::kDefaultSpecialActs));
    stored.number3 = strategy::kDefaultNumber3;
    stored.number5 = strategy::kDefaultNumber5;
    stored.number6 = strategy::kDefaultNumber6;
    ApplyRouting(DefaultRouting());
}

CStrategy::~CStrategy() {
    Join();
}

void CStrategy::ApplyRouting(const StrategyRouting& routing) {
    hosts = routing.hosts;
    fallbackList.Assign(routing.fallbackAddresses);
    postFallbackList.Assign(routing.postFallbackAddresses);
    strategyFallbackList.Assign(routing.strategyFallbackAddresses);
    configFallbackList.Assign(routing.configFallbackAddresses);
    spareFallbackList.Assign(routing.spareFallbackAddresses);
}

void CStrategy::SetRoutingForTesting(const StrategyRouting& routing) {
    ApplyRouting(routing);
}

void CStrategy::StartFetch(std::atomic<bool>* flag) {
    if (fetchThread.isRunning()) {
        return;
    }
    stopOldSdkFlag = flag;
    fetchThread.start(*this);
}

void CStrategy::Join() {
    fetchThread.join();
}

void CStrategy::Run() {
    StrategyFetch fetchNow;
    {
        CScopedLock scoped(lock);
        fetchNow = fetch;
    }
    std::string reply;
    if (!fetchNow ||
        !fetchNow(hosts.strategyHost, hosts.strategyPort, strategy::kStrategyPath, reply) ||
        reply.empty()) {
        return;
    }
    // A second start of the worker in the same process must not apply the same blob again.
    if (reply == lastBlob) {
        return;
    }
    lastBlob = std::move(reply);
    ParseStrategy();
}

void CStrategy::ParseStrategy() {
    std::string plain;
    if (!DecodeStrategyBlob(lastBlob, plain) || plain.empty()) {
        return;
    }
    StrategyFieldReader reader(plain);
    ParsedStrategy parsed;
    if (!ReadStrategyFields(reader, parsed)) {
        return;
    }
    // The switch is the one field that may be missing or bad on its own.
    uint64_t stopOldSdk = 0;
    if (reader.ReadUnsigned(strategy::kStopOldSdkWidth, stopOldSdk) && stopOldSdkFlag) {
        stopOldSdkFlag->store(stopOldSdk != 0, std::memory_order_relaxed);
    }

    CScopedLock scoped(lock);
    fallbackList.Assign(parsed.fallbackAddresses);
    postFallbackList.Assign(parsed.postFallbackAddresses);
    spareFallbackList.Assign(parsed.spareFallbackAddresses);
    stored = std::move(parsed.stored);
    SetKeepAliveLimit(parsed.number1);
    if (timer1) {
        timer1->restart(SecondsToMilliseconds(parsed.number2));
    }
    if (timer2) {
        timer2->restart(SecondsToMilliseconds(parsed.number4));
    }
}

bool CStrategy::DecodeStrategyBlob(const std::string& blob, std::string& plain) {
    plain.clear();
    if (blob.empty()) {
        return false;
    }
    CAesBlobCipher cipher;
    cipher.SetPassString(deployment::kStrategyPass);
    cipher.SetDirection(static_cast<uint32_t>(crypto::kDecrypt));
    AesBlobPlain decoded = cipher.Decode(blob);
    if (decoded.plainLength == 0 && decoded.cipherLength == 0) {
        return false;
    }
    plain = std::move(decoded.plain);
    return true;
}

uint32_t CStrategy::GetKeepAliveLimit() {
    CScopedLock scoped(lock);
    return keepAliveLimit;
}

bool CStrategy::SetKeepAliveLimit(uint64_t seconds) {
    const uint32_t milliseconds = SecondsToMilliseconds(seconds);
    CScopedLock scoped(lock);
    if (milliseconds == keepAliveLimit) {
        return false;
    }
    keepAliveLimit = milliseconds;
    if (keepAliveSink) {
        keepAliveSink->SetKeepAliveLimit(milliseconds);
    }
    return true;
}

bool CStrategy::IsLogsEnabled() {
    CScopedLock scoped(lock);
    return logsEnabled;
}

void CStrategy::EnableLogs() {
    CScopedLock scoped(lock);
    logsEnabled = true;
}

StoredStrategyFields CStrategy::GetStoredFields() {
    CScopedLock scoped(lock);
    return stored;
}

void CStrategy::SetFetchFunction(StrategyFetch newFetch) {
    CScopedLock scoped(lock);
    fetch = std::move(newFetch);
}

void CStrategy::SetKeepAliveSink(KeepAliveSink* sink) {
    CScopedLock scoped(lock);
    keepAliveSink = sink;
}

}  // namespace qzdata_report_kelvo
