// One connection of the delivery engine: a sending thread's loop over a dispatcher's queue (the
// queued way), or a temporary object that makes one request on its caller's thread (the direct
// way). Either way a request goes twice to the host name and then twice to fallback addresses.
#pragma once

#include <cstdint>
#include <string>

#include "delivery/connect_data.h"
#include "delivery/connect_queue.h"
#include "net/http_client.h"
#include "runtime/thread.h"
#include "strategy/address_list.h"

namespace qzdata_report_kelvo {

class CReportContext;

// Threads: a dispatcher's connection is used by its own sending thread, except that
// SetKeepAliveLimit may come from any thread (the client locks it). A temporary connection
// lives for one call on its caller's thread and starts no thread. The context and the two
// lists (held by CStrategy) must outlive the object.
// Whether a send counts in the statistics and reports its failures (a record of the queued
// way), or is quiet and keeps the reply body (the direct way).
enum class Counting { kCounted, kQuiet };
// Whether a send makes one attempt on the host name only, or all four with fallback.
enum class Attempts { kWithFallback, kOnce };
// Whether the connection closes after an attempt that succeeded (it closes after a failure
// in any case).
enum class AfterAttempt { kKeepConnection, kCloseConnection };

class CReportConnect : public CRunnable {
  public:
    // A dispatcher's connection: reads `queue` (the dispatcher's) in Run.
    CReportConnect(const std::string& host, uint16_t port, CConnectQueue* queue,
                   CReportContext* context, CAddressList* fallbackList,
                   CAddressList* postFallbackList);
    // A temporary connection for the direct way, with a private queue that nothing fills.
    CReportConnect(const std::string& host, uint16_t port, CReportContext* context,
                   CAddressList* fallbackList, CAddressList* postFallbackList);
    ~CReportConnect() override = default;
    CReportConnect(const CReportConnect&) = delete;
    CReportConnect& operator=(const CReportConnect&) = delete;

    // The sending loop: sends each queued record, hands a failed one to Repost (counting it in
    // `del` when refused), and at quick quit gives up to 20 records that never had an attempt
    // one last try. Ends on a quick quit, a quit or a null notification. Sending thread.
    void Run();
    void run() override { Run(); }

    // Attempts 1 and 2 on `client`, then attempts 3 and 4 on fallback addresses; with
    // Attempts::kOnce a single attempt 1 and no fallback. When counted, counts the pass in
    // succeed_report or fail_report. `response` gets the reply body of a quiet success. True on
    // success.
    template <class Client>
    bool SendWithFallback(Client& client, const CConnectData& data, Counting counting,
                          Attempts attempts, std::string& response);

    // One attempt on `client`, which must be set up. True when a complete reply with status 200
    // came. When counted, counts the attempt (first_connect or retry, suc or fait) and hands a
    // failure to the context's failure line (marked as a single try with Attempts::kOnce); a
    // quiet attempt asks for the reply body instead. Closes the connection after a failure, and
    // with AfterAttempt::kCloseConnection in any case.
    template <class Client>
    bool SendOnce(Client& client, const CConnectData& data, int32_t attempt, AfterAttempt after,
                  Counting counting, Attempts attempts, std::string& response);

    // One attempt on an address picked from the fallback list of the request type, on this
    // connection's port, over the plain client. False with no attempt when the list is empty.
    bool SendViaFallback(const CConnectData& data, int32_t attempt, Counting counting,
                         std::string& response);

    // The direct way, on the caller's thread, always quiet. FetchPlain and FetchSecure return
    // the reply body in `response`; UploadDirect reads the reply and drops it. FetchSecure asks
    // the host over TLS; its fallback steps still go plain to the fallback addresses.
    bool FetchPlain(const std::string& path, int32_t type, const std::string& body,
                    std::string& response);
    bool UploadDirect(const std::string& path, int32_t type, const std::string& body,
                      const std::string& recordId, const std::string& item, int64_t time,
                      Attempts attempts);
    bool FetchSecure(const std::string& path, int32_t type, const std::string& body,
                     std::string& response);

    // Gives the primary client a new keep-alive limit (milliseconds). Any thread; the caller
    // holds the dispatch table's lock.
    void SetKeepAliveLimit(uint32_t milliseconds);
    uint32_t GetKeepAliveLimit();

    // The request target of `data` at `attempt`: the path with "EC=" and the attempt count
    // across passes, then, for a record, "&action=", "&sdkver=" (unless the body has one) and
    // the body in the target (GET) or "&item=" (POST).
    static std::string BuildTarget(const CConnectData& data, int32_t attempt,
                                   const std::string& sdkVersion);

  private:
    // Host, port, time-out and keep-alive limit, before every use of a client.
    template <class Client>
    void SetUpClient(Client& client, const std::string& clientHost);
    // The one direct routine; the client type is its variable.
    template <class Client>
    bool SendDirect(Client& client, const std::string& path, int32_t type, const std::string& body,
                    const std::string& recordId, const std::string& item, int64_t time,
                    Attempts attempts, std::string& response);
    void DrainAtQuickQuit();

    std::string host;
    uint16_t port;
    CConnectQueue ownQueue;
    CConnectQueue* queue;
    CHttpClient primaryClient;
    CHttpClient fallbackClient;
    CHttpClient directClient;
    CHttpClient_https secureClient;
    CAddressList* fallbackList;
    CAddressList* postFallbackList;
    CReportContext* context;
    bool backlogSeen = false;  // Run's thread; the queue held a backlog since it was last empty
};

}  // namespace qzdata_report_kelvo
