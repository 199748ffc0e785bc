#include "net/http_client.h"

#include <climits>
#include <cstdio>
#include <mutex>
#include <new>
#include <utility>

#include "net/http_message.h"
#include "port/env.h"

namespace qzdata_report_kelvo {

namespace net {

std::string FormatPort(uint16_t port) {
    char text[8];
    std::snprintf(text, sizeof(text), "%u", static_cast<unsigned>(port));
    return text;
}

namespace {

std::mutex defaultResolverLock;
Resolver defaultResolverForTesting;  // guarded by defaultResolverLock

}  // namespace

Resolver DefaultResolver() {
    std::lock_guard<std::mutex> lock(defaultResolverLock);
    return defaultResolverForTesting ? defaultResolverForTesting : Resolver(port::ResolveStream);
}

void SetDefaultResolverForTesting(Resolver resolver) {
    std::lock_guard<std::mutex> lock(defaultResolverLock);
    defaultResolverForTesting = std::move(resolver);
}

}  // namespace net

template <class Transport>
BasicHttpClient<Transport>::BasicHttpClient(bool blockingLookup)
    : blockingLookup(blockingLookup),
      directLookup(blockingLookup),
      resolver(net::DefaultResolver()) {}

template <class Transport>
BasicHttpClient<Transport>::~BasicHttpClient() {
    Disconnect();
    holder.reset();
}

template <class Transport>
void BasicHttpClient<Transport>::SetHost(const std::string& newHost) {
    if (&newHost != &host) {
        host = newHost;
    }
}

template <class Transport>
std::string BasicHttpClient<Transport>::GetHost() const {
    return host;
}

template <class Transport>
void BasicHttpClient<Transport>::SetPort(uint16_t newPort) {
    port = newPort;
}

template <class Transport>
void BasicHttpClient<Transport>::SetTimeout(uint32_t timeoutMs) {
    timeout = timeoutMs;
}

template <class Transport>
void BasicHttpClient<Transport>::SetKeepAliveTimeout(uint32_t keepAliveMs) {
    CScopedLock guard(lock);
    keepAliveLimit = keepAliveMs;
}

template <class Transport>
void BasicHttpClient<Transport>::SetResolverForTesting(net::Resolver newResolver) {
    resolver = std::move(newResolver);
}

template <class Transport>
int BasicHttpClient<Transport>::Request(const HttpRequest& request, uint32_t& status,
                                        bool& serverKeepAlive, std::string& responseBody) {
    status = 0;
    serverKeepAlive = false;
    responseBody.clear();

    int code = Connect(request.keepAlive);
    if (code == net::kResultOk) {
        code = SendRequest(request);
        port::Sleep(1);
    }
    if (code == net::kResultOk) {
        code = ReceiveResponse(status, serverKeepAlive, request.wantBody, responseBody);
        port::Sleep(1);
    }
    if (code != net::kResultOk) {
        lastError = port::GetLastSocketError();
        Disconnect();
        return code;
    }
    lastError = 0;
    if (!(request.keepAlive && serverKeepAlive)) {
        Disconnect();
    }
    return net::kResultOk;
}

template <class Transport>
int BasicHttpClient<Transport>::Connect(bool keepAlive) {
    if (const int code = Transport::CheckAvailable()) {
        return code;
    }
    if (socket != port::kInvalidSocket) {
        if (!keepAlive) {
            Disconnect();
        } else {
            const uint32_t idle = IdleSince(lastUse);
            uint32_t limit;
            {
                CScopedLock guard(lock);
                limit = keepAliveLimit;
            }
            if (idle >= limit) {
                Disconnect();
            }
        }
        // A kept connection is reused unchecked: one the peer has closed shows up as a failure
        // of the request that uses it.
        if (socket != port::kInvalidSocket) {
            return net::kResultOk;
        }
    }
    if (host.empty()) {
        return net::kResultEmptyHost;
    }
    if (!holder) {
        try {
            holder = std::make_shared<AddrInfoHolder>();
        } catch (const std::bad_alloc&) {
            return net::kResultHolderAllocation;
        }
    }
    if (const int code = Resolve()) {
        return code;
    }

    // Only the head of the list is ever tried.
    const port::AddrInfo* head = holder->Head();
    if (head == nullptr) {
        return net::kResultNoAddress;
    }
    socket = port::CreateSocket(*head);
    if (socket == port::kInvalidSocket) {
        holder->Clear();
        return net::kResultSocketFailed;
    }
    // On failure the socket stays stored, for the Disconnect that follows the failed request.
    if (port::SetNonBlocking(socket) != 0) {
        holder->Clear();
        return net::kResultNonBlockingFailed;
    }
    port::SetNoDelay(socket);
    if (const int code = transport.Attach(socket)) {
        holder->Clear();
        return code;
    }
    const int connectResult = port::ConnectSocket(socket, *head);
    // No address outlives a connect: every new connection resolves the name again.
    holder->Clear();
    return FinishConnect(connectResult);
}

template <class Transport>
int BasicHttpClient<Transport>::FinishConnect(int connectResult) {
    if (connectResult != 0) {
        const int error = port::GetLastSocketError();
        if (error == net::kErrorWouldBlock) {
            // The exception set is not watched and SO_ERROR is not read: a refusal shows as a
            // time-out here, or as a failure of the first send where the socket turns writable.
            if (port::SelectWritable(socket, timeout) != 1) {
                return net::kResultConnectTimedOut;
            }
        } else if (error != net::kErrorIsConnected) {
            return net::kResultConnectFailed;
        }
    }
    return transport.Handshake(socket, timeout);
}

template <class Transport>
int BasicHttpClient<Transport>::Resolve() {
    return directLookup ? ResolveDirectly() : ResolveOnThread();
}

template <class Transport>
int BasicHttpClient<Transport>::ResolveOnThread() {
    bool startedHere = false;
    // A thread left running by an earlier call is waited for again rather than joined by a
    // second one: at most one look-up per client runs at a time.
    if (!lookupThread.isRunning()) {
        DnsThreadData* data = nullptr;
        try {
            data = new DnsThreadData{host, port, holder, resolver};
        } catch (const std::bad_alloc&) {
            directLookup = true;
            return net::kResultLookupAllocation;
        }
        lookupThread.start(&DnsThreadProc<Transport>, data);
        if (!lookupThread.hasHandle()) {
            // No thread could be made: the wait below ends at once and the holder is empty.
            delete data;
        }
        startedHere = true;
    }
    if (!lookupThread.wait(timeout)) {
        return net::kResultLookupTimedOut;
    }
    if (startedHere) {
        directLookup = true;
    }
    if (holder->Head() == nullptr) {
        return net::kResultLookupEmpty;
    }
    return net::kResultOk;
}

template <class Transport>
int BasicHttpClient<Transport>::ResolveDirectly() {
    holder->Clear();
    port::AddrInfo* list = nullptr;
    const uint32_t start = Now();
    const int rc = resolver(host, net::FormatPort(port), &list);
    // A resolver that has become slow sends the client back to look-up threads.
    if (!blockingLookup && IdleSince(start) > timeout) {
        directLookup = false;
    }
    if (rc != 0 || list == nullptr) {
        port::FreeResolved(list);
        return net::kResultResolveFailed;
    }
    holder->Store(list);
    return net::kResultOk;
}

template <class Transport>
int BasicHttpClient<Transport>::SendRequest(const HttpRequest& request) {
    const std::string text = BuildRequestText(request, host);
    size_t sent = 0;
    uint32_t progress = Now();
    while (sent < text.size()) {
        if (port::SelectWritable(socket, timeout) != 1) {
            return Transport::kSendTimedOut;
        }
        const size_t remaining = text.size() - sent;
        const int offered = remaining > INT_MAX ? INT_MAX : static_cast<int>(remaining);
        const int count = transport.Write(socket, text.data() + sent, offered);
        if (count < 0) {
            if (!transport.WouldBlock(count)) {
                return Transport::kSendFailed;
            }
            // Idle time-out: a slow transfer that keeps moving is never cut off.
            if (IdleSince(progress) >= timeout) {
                return Transport::kSendTimedOut;
            }
        } else if (count == 0 || count > offered) {
            return Transport::kSendFailed;
        } else {
            sent += static_cast<size_t>(count);
            progress = Now();
        }
        if (Transport::kPauseEachRound && sent < text.size()) {
            port::Sleep(1);
        }
    }
    if (request.keepAlive) {
        lastUse = Now();
    }
    return net::kResultOk;
}

template <class Transport>
int BasicHttpClient<Transport>::ReceiveResponse(uint32_t& status, bool& serverKeepAlive,
                                                bool wantBody, std::string& responseBody) {
    status = 0;
    serverKeepAlive = false;
    responseBody.clear();
    // Bytes beyond the end of this response are dropped with the accumulation; nothing is
    // carried to the next request on a kept connection.
    std::string response;
    HttpResponseState state;
    uint32_t progress = Now();
    for (;;) {
        if (port::SelectReadable(socket, timeout) != 1) {
            return Transport::kReceiveTimedOut;
        }
        const int count = transport.Read(socket, receiveBuffer, net::kReceiveBufferSize);
        if (count < 0) {
            if (!transport.WouldBlock(count)) {
                return Transport::kReceiveFailed;
            }
            if (IdleSince(progress) >= timeout) {
                return Transport::kReceiveTimedOut;
            }
        } else if (count == 0 || count > net::kReceiveBufferSize) {
            // Also a response that only the peer's close could delimit.
            return Transport::kReceiveFailed;
        } else {
            response.append(receiveBuffer, static_cast<size_t>(count));
            int code = net::kResultOk;
            if (ParseResponse(response, code, state)) {
                if (code != net::kResultOk) {
                    return code;
                }
                break;
            }
            progress = Now();
        }
        if (Transport::kPauseEachRound) {
            port::Sleep(1);
        }
    }

    status = state.statusCode;
    serverKeepAlive = state.keepAlive;
    if (wantBody) {
        if (state.contentLength != 0 && state.bodyOffset != 0) {
            responseBody.assign(response, state.bodyOffset, state.contentLength);
        } else if (!state.hasContentLength && state.chunked) {
            responseBody = state.chunkedBody;
        }
    }
    return status == 200 ? net::kResultOk : net::kResultStatusNotOk;
}

template <class Transport>
void BasicHttpClient<Transport>::Disconnect() {
    transport.BeginClose();
    if (socket != port::kInvalidSocket) {
        if (port::ShutdownSend(socket) == 0) {
            const uint32_t start = Now();
            for (;;) {
                const uint32_t spent = IdleSince(start);
                if (spent >= net::kDrainBudgetMs ||
                    port::SelectReadable(socket, net::kDrainBudgetMs - spent) != 1) {
                    break;
                }
                const int count = port::Recv(socket, receiveBuffer, net::kReceiveBufferSize);
                if (count < 0 && port::GetLastSocketError() != net::kErrorWouldBlock) {
                    break;
                }
                if (count == 0 || count > net::kReceiveBufferSize) {
                    break;
                }
            }
        }
        port::CloseSocket(socket);
        socket = port::kInvalidSocket;
    }
    transport.EndClose();
    lastUse = 0;
}

template class BasicHttpClient<PlainTransport>;
template class BasicHttpClient<TlsTransport>;

}  // namespace qzdata_report_kelvo
