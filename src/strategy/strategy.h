// What the server may change in the library's behaviour: hosts, fallback address lists, the
// keep-alive limit of connections and the switch that ends the legacy library's reporting.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "runtime/critical_section.h"
#include "runtime/thread.h"
#include "strategy/address_list.h"

namespace qzdata_report_kelvo {

class CTimer;

// Takes a changed keep-alive limit to every connection; the dispatch table implements it.
class KeepAliveSink {
  public:
    virtual ~KeepAliveSink() = default;
    // Called with the CStrategy lock held (the sink's own lock nests inside it), on the strategy
    // thread or the caller of CStrategy::SetKeepAliveLimit.
    virtual void SetKeepAliveLimit(uint32_t milliseconds) = 0;
};

// The host roles and their ports: records and statistics, the strategy fetch, the device
// configuration (HTTPS).
struct StrategyHosts {
    std::string collectorHost;
    std::string auxHost1;
    std::string auxHost2;
    std::string strategyHost;
    std::string configHost;
    std::string auxHost3;
    uint16_t collectorPort = 0;
    uint16_t strategyPort = 0;
    uint16_t configPort = 0;
};

// Hosts, ports and address lists as one value. DefaultRouting() is the deployment profile.
struct StrategyRouting {
    StrategyHosts hosts;
    std::vector<std::string> fallbackAddresses;
    std::vector<std::string> postFallbackAddresses;
    std::vector<std::string> strategyFallbackAddresses;
    std::vector<std::string> configFallbackAddresses;
    std::vector<std::string> spareFallbackAddresses;
};
StrategyRouting DefaultRouting();

// The fields of a blob that are kept without a reader in the library. They are stored all the
// same: the format is a contract with the server, and a later server version may give them one.
struct StoredStrategyFields {
    std::set<std::string> specialActs;
    std::set<std::string> stringSet2;
    std::map<std::string, int32_t> intMap1;
    std::map<std::string, int32_t> intMap2;
    uint64_t number3 = 0;
    uint64_t number5 = 0;
    uint64_t number6 = 0;
    std::set<std::string> stringSet3;
    std::set<std::string> stringSet4;
    std::set<std::string> stringSet5;
    std::set<std::string> stringSet6;

    bool operator==(const StoredStrategyFields& other) const;
};

// Asks `host`:`port` for `path` in plain HTTP without fallback; true with the reply body in
// `reply` when a complete 200 reply came. Runs on the strategy thread.
using StrategyFetch = std::function<bool(const std::string& host, uint16_t port,
                                         const std::string& path, std::string& reply)>;

// One instance, held by the report context. Built-in defaults stand from the constructor on;
// one fetch per StartFetch may replace the lists, the stored fields, the keep-alive limit and
// the stop-old-SDK switch, all or nothing. The blob lives in memory only.
//
// Threads: StartFetch and Join are called by the report worker thread; the readers (hosts,
// ports, lists, limit, logs flag) by any thread. Lock order: the CStrategy lock, then a list's
// lock or the keep-alive sink's lock; never the other way round.
class CStrategy : public CRunnable {
  public:
    CStrategy();
    // Waits for a fetch still running, which uses this object to its end.
    ~CStrategy() override;
    CStrategy(const CStrategy&) = delete;
    CStrategy& operator=(const CStrategy&) = delete;

    // When no fetch runs: keeps `stopOldSdkFlag` (owned by the report object, may be null) and
    // starts the strategy thread on Run. Otherwise does nothing.
    void StartFetch(std::atomic<bool>* stopOldSdkFlag);
    // Waits without a time limit for the strategy thread. Same thread as StartFetch.
    void Join();

    // One fetch: asks the strategy host and, if the reply is not empty and differs from the last
    // reply, keeps it and parses it. A failed fetch changes nothing.
    void Run();
    void run() override { Run(); }

    // Parses the last reply kept by Run and commits it whole under the lock; a blob that fails
    // to decode or to read (fields 1-28) changes nothing. Field 29 alone may fail: the switch
    // then stays and the rest applies. Strategy thread.
    void ParseStrategy();

    // Deciphers `blob` with the deployment's strategy pass into `plain`. False, with `plain`
    // empty, when the blob is empty or refused (bad length prefix or size, or a plain length
    // of 0).
    static bool DecodeStrategyBlob(const std::string& blob, std::string& plain);

    // Milliseconds; 60000 until a strategy or a caller changes it.
    uint32_t GetKeepAliveLimit();
    // Converts `seconds` to milliseconds (4294967295 from 4294968 seconds on). When that differs
    // from the limit, stores it, hands it to the keep-alive sink if one is set, and returns
    // true; otherwise returns false.
    bool SetKeepAliveLimit(uint64_t seconds);

    bool IsLogsEnabled();
    void EnableLogs();

    // Host roles and ports. Plain references: they do not change once threads read them.
    const StrategyHosts& GetHosts() const { return hosts; }
    const std::string& GetCollectorHost() const { return hosts.collectorHost; }
    uint16_t GetCollectorPort() const { return hosts.collectorPort; }

    // The five address lists; each has its own lock. A blob replaces fallback, post-fallback and
    // spare lists; the strategy and config lists stay empty on purpose (those requests have no
    // fallback).
    CAddressList& GetFallbackList() { return fallbackList; }
    CAddressList& GetPostFallbackList() { return postFallbackList; }
    CAddressList& GetStrategyFallbackList() { return strategyFallbackList; }
    CAddressList& GetConfigFallbackList() { return configFallbackList; }
    CAddressList& GetSpareFallbackList() { return spareFallbackList; }

    // A copy of the fields without a reader, under the lock.
    StoredStrategyFields GetStoredFields();

    // Installs the way Run fetches (the delivery engine's direct request). Without one, every
    // fetch fails and the defaults stay. Not while a fetch runs.
    void SetFetchFunction(StrategyFetch fetch);
    // Sets the receiver of changed keep-alive limits (null: none). Any thread.
    void SetKeepAliveSink(KeepAliveSink* sink);

    // Tests only: points the library at other hosts, ports and lists. Must come before any
    // thread reads them (the host texts are handed out by reference).
    void SetRoutingForTesting(const StrategyRouting& routing);

  private:
    void ApplyRouting(const StrategyRouting& routing);

    StrategyHosts hosts;
    CAddressList fallbackList;
    CAddressList postFallbackList;
    CAddressList strategyFallbackList;
    CAddressList configFallbackList;
    CAddressList spareFallbackList;
    std::string lastBlob;  // strategy thread only
    CThread fetchThread;
    uint32_t keepAliveLimit;  // guarded by lock
    // Would get the periods of numbers 2 and 4; nothing creates them. Guarded by lock.
    CTimer* timer1 = nullptr;
    CTimer* timer2 = nullptr;
    StoredStrategyFields stored;             // guarded by lock
    bool logsEnabled = false;                // guarded by lock
    KeepAliveSink* keepAliveSink = nullptr;  // guarded by lock
    StrategyFetch fetch;                     // guarded by lock
    // Guards the limit, the logs flag, the stored fields and the commit of a blob.
    CCriticalSection lock;
    std::atomic<bool>* stopOldSdkFlag = nullptr;  // set before the strategy thread starts
};

}  // namespace qzdata_report_kelvo
