#include "delivery/report_connect.h"

#include "codec/utils.h"
#include "codec/wire_names.h"
#include "delivery/constants.h"
#include "delivery/dispatch_table.h"
#include "delivery/report_context.h"
#include "port/env.h"
#include "port/free_memory.h"
#include "port/sleep_precision.h"

namespace qzdata_report_kelvo {

namespace {

// The attempt count across passes: pass p, attempt a gives a + 4p - 4, so one record counts
// 1 to 20 through its five passes. A direct request (pass 0) counts its attempts alone.
int32_t AttemptCount(const CConnectData& data, int32_t attempt) {
    if (data.retry < delivery::kFirstPass) {
        return attempt;
    }
    return attempt + delivery::kAttemptsPerPass * data.retry - delivery::kAttemptsPerPass;
}

bool StartsWith(const std::string& text, const std::string& lead) {
    return text.compare(0, lead.size(), lead) == 0;
}

}  // namespace

CReportConnect::CReportConnect(const std::string& host, uint16_t port, CConnectQueue* queue,
                               CReportContext* context, CAddressList* fallbackList,
                               CAddressList* postFallbackList)
    : host(host),
      port(port),
      queue(queue),
      primaryClient(false),
      fallbackClient(true),
      directClient(true),
      secureClient(true),
      fallbackList(fallbackList),
      postFallbackList(postFallbackList),
      context(context) {}

CReportConnect::CReportConnect(const std::string& host, uint16_t port, CReportContext* context,
                               CAddressList* fallbackList, CAddressList* postFallbackList)
    : CReportConnect(host, port, &ownQueue, context, fallbackList, postFallbackList) {}

template <class Client>
void CReportConnect::SetUpClient(Client& client, const std::string& clientHost) {
    client.SetHost(clientHost);
    client.SetPort(port);
    client.SetTimeout(context->GetRequestTimeout());
    client.SetKeepAliveTimeout(context->GetStrategy().GetKeepAliveLimit());
}

void CReportConnect::Run() {
    port::RequestPreciseSleeps();
    SetUpClient(primaryClient, host);
    for (;;) {
        CConnectDataPtr data;
        const CNotificationPtr notification = queue->Wait(data);
        if (!notification || IsNotification<CQuitNotification>(notification)) {
            break;
        }
        if (IsNotification<CQuickQuitNotification>(notification)) {
            DrainAtQuickQuit();
            break;
        }
        if (IsNotification<CConnectNotification>(notification) && data) {
            std::string response;
            if (!SendWithFallback(primaryClient, *data, Counting::kCounted, Attempts::kWithFallback,
                                  response)) {
                CDispatchTable* table = context->GetDispatchTable();
                if (table != nullptr && !table->Repost(data->recordId, host, port, *data)) {
                    context->GetStats().AddDel();
                }
            }
            data.reset();
            // Once a backlog has drained, its memory is free but still resident in the host.
            const size_t left = queue->Size();
            if (left >= delivery::kBacklogWorthReleasing) {
                backlogSeen = true;
            } else if (left == 0 && backlogSeen) {
                backlogSeen = false;
                port::ReleaseFreeMemory();
            }
        }
        port::Sleep(delivery::kLoopPauseMs);
    }
    primaryClient.Disconnect();
}

void CReportConnect::DrainAtQuickQuit() {
    CReportStats& stats = context->GetStats();
    int32_t budget = delivery::kDrainBudget;
    while (CConnectDataPtr data = queue->TakeNext()) {
        // Records already in a later pass had their chances; only untried ones get one more.
        if (data->retry == delivery::kFirstPass && budget > 0) {
            std::string response;
            const bool sent = SendOnce(primaryClient, *data, 1, AfterAttempt::kKeepConnection,
                                       Counting::kCounted, Attempts::kOnce, response);
            if (sent) {
                stats.AddSucceedReport();
            } else {
                stats.AddFailReport();
            }
            --budget;
            if (sent) {
                continue;
            }
        }
        stats.AddDel();
    }
}

template <class Client>
bool CReportConnect::SendWithFallback(Client& client, const CConnectData& data, Counting counting,
                                      Attempts attempts, std::string& response) {
    response.clear();
    constexpr AfterAttempt keep = AfterAttempt::kKeepConnection;
    bool sent = false;
    if (attempts == Attempts::kOnce) {
        sent = SendOnce(client, data, 1, keep, counting, Attempts::kOnce, response);
    } else {
        sent = SendOnce(client, data, 1, keep, counting, attempts, response) ||
               SendOnce(client, data, 2, keep, counting, attempts, response) ||
               SendViaFallback(data, delivery::kFirstFallbackAttempt, counting, response) ||
               SendViaFallback(data, delivery::kSecondFallbackAttempt, counting, response);
    }
    if (counting == Counting::kCounted) {
        if (sent) {
            context->GetStats().AddSucceedReport();
        } else {
            context->GetStats().AddFailReport();
        }
    }
    return sent;
}

bool CReportConnect::SendViaFallback(const CConnectData& data, int32_t attempt, Counting counting,
                                     std::string& response) {
    response.clear();
    CAddressList* list = data.type == delivery::kPostType ? postFallbackList : fallbackList;
    std::string address;
    if (list != nullptr) {
        list->PickRandom(address);
    }
    if (address.empty()) {
        return false;
    }
    SetUpClient(fallbackClient, address);
    return SendOnce(fallbackClient, data, attempt, AfterAttempt::kCloseConnection, counting,
                    Attempts::kWithFallback, response);
}

std::string CReportConnect::BuildTarget(const CConnectData& data, int32_t attempt,
                                        const std::string& sdkVersion) {
    std::string target;
    if (data.path.empty() || data.path[0] != '/') {
        target = "/";
    }
    target += data.path;
    if (target.find('?') == std::string::npos) {
        target += '?';
    }
    if (target.back() != '?') {
        target += '&';
    }
    target += wire::kFieldAttempt;
    target += Int32ToString(AttemptCount(data, attempt));

    // A strategy or configuration request carries neither the record's id nor a body.
    if (data.recordId.empty()) {
        return target;
    }
    if (!data.body.empty() && data.base64Body) {
        target += wire::kFieldBase64;
    }
    target += wire::kFieldRecordId;
    target += data.recordId;
    if (!sdkVersion.empty() && !StartsWith(data.body, wire::kFieldSdkVersionLead) &&
        data.body.find(wire::kFieldSdkVersion) == std::string::npos) {
        target += wire::kFieldSdkVersion;
        target += sdkVersion;
    }
    if (data.type == delivery::kPostType) {
        if (!data.item.empty()) {
            target += wire::kFieldItem;
            target += data.item;
        }
        return target;
    }
    if (!data.body.empty()) {
        if (data.body[0] != '&') {
            target += '&';
        }
        target += data.body;
    }
    return target;
}

template <class Client>
bool CReportConnect::SendOnce(Client& client, const CConnectData& data, int32_t attempt,
                              AfterAttempt after, Counting counting, Attempts attempts,
                              std::string& response) {
    response.clear();
    const bool quiet = counting == Counting::kQuiet;
    CReportStats& stats = context->GetStats();
    if (!quiet) {
        if (attempt == 1 && data.retry == delivery::kFirstPass) {
            stats.AddFirstConnect();
        } else {
            stats.AddRetry();
        }
    }

    uint32_t status = 0;
    bool serverKeepAlive = false;
    // Only a complete 200 reply counts; what a collector writes in it plays no part.
    HttpRequest request;
    request.path = BuildTarget(data, attempt, context->GetSdkVersion());
    request.post = data.type == delivery::kPostType;
    if (request.post) {
        // A GET carries its body in the target already.
        request.body = data.body;
    }
    request.keepAlive = data.keepAlive;
    request.wantBody = quiet;
    const int result = client.Request(request, status, serverKeepAlive, response);
    const bool sent = result == net::kResultOk;
    if (sent) {
        if (!serverKeepAlive && data.keepAlive) {
            client.Disconnect();
        }
    } else {
        if (!quiet) {
            const std::string code = Int32ToString(result);
            std::string tail = "\t";
            tail += data.item;
            tail += '\t';
            tail += Int32ToString(AttemptCount(data, attempt) - 1);
            tail += '\t';
            tail += client.GetHost();
            context->AppendFailLine(code, tail, attempts == Attempts::kOnce);
        }
        client.Disconnect();
    }
    if (after == AfterAttempt::kCloseConnection) {
        client.Disconnect();
    }
    if (!quiet) {
        if (sent) {
            stats.AddSuc();
        } else {
            stats.AddFait();
        }
    }
    return sent;
}

template <class Client>
bool CReportConnect::SendDirect(Client& client, const std::string& path, int32_t type,
                                const std::string& body, const std::string& recordId,
                                const std::string& item, int64_t time, Attempts attempts,
                                std::string& response) {
    SetUpClient(client, host);
    CConnectData data;
    data.path = path;
    data.type = type;
    data.body = body;
    data.recordId = recordId;
    data.item = item;
    data.time = time;
    return SendWithFallback(client, data, Counting::kQuiet, attempts, response);
}

bool CReportConnect::FetchPlain(const std::string& path, int32_t type, const std::string& body,
                                std::string& response) {
    return SendDirect(directClient, path, type, body, std::string(), std::string(),
                      delivery::kNoTime, Attempts::kWithFallback, response);
}

bool CReportConnect::UploadDirect(const std::string& path, int32_t type, const std::string& body,
                                  const std::string& recordId, const std::string& item,
                                  int64_t time, Attempts attempts) {
    std::string response;
    return SendDirect(directClient, path, type, body, recordId, item, time, attempts, response);
}

bool CReportConnect::FetchSecure(const std::string& path, int32_t type, const std::string& body,
                                 std::string& response) {
    return SendDirect(secureClient, path, type, body, std::string(), std::string(),
                      delivery::kNoTime, Attempts::kWithFallback, response);
}

void CReportConnect::SetKeepAliveLimit(uint32_t milliseconds) {
    primaryClient.SetKeepAliveTimeout(milliseconds);
}

uint32_t CReportConnect::GetKeepAliveLimit() {
    return primaryClient.GetKeepAliveTimeout();
}

template bool CReportConnect::SendWithFallback(CHttpClient&, const CConnectData&, Counting,
                                               Attempts, std::string&);
template bool CReportConnect::SendWithFallback(CHttpClient_https&, const CConnectData&, Counting,
                                               Attempts, std::string&);
template bool CReportConnect::SendOnce(CHttpClient&, const CConnectData&, int32_t, AfterAttempt,
                                       Counting, Attempts, std::string&);
template bool CReportConnect::SendOnce(CHttpClient_https&, const CConnectData&, int32_t,
                                       AfterAttempt, Counting, Attempts, std::string&);

}  // namespace qzdata_report_kelvo
