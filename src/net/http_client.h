// The library's own HTTP/1.1 clients over non-blocking sockets: CHttpClient (plain) and
// CHttpClient_https (TLS). One object is one connection to one host and port, doing one request
// and one response at a time. The logic exists once, in BasicHttpClient; the transport (plain
// socket or TLS session) is its parameter.
//
// Threads: a client is used by one thread at a time (its owner's). SetKeepAliveTimeout may be
// called from any thread. The only other thread that touches client data is the client's
// look-up thread, and it touches only the shared address holder.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "net/constants.h"
#include "net/http_message.h"
#include "net/lookup.h"
#include "net/plain_transport.h"
#include "net/ticks.h"
#include "net/tls_transport.h"
#include "port/env.h"
#include "port/socket_api.h"
#include "runtime/critical_section.h"
#include "runtime/thread.h"

namespace qzdata_report_kelvo {

template <class Transport>
class BasicHttpClient {
  public:
    using AddrInfoHolder = BasicAddrInfoHolder<Transport>;
    using DnsThreadData = BasicDnsThreadData<Transport>;

    // `blockingLookup` true: every look-up runs on the calling thread. False: the client starts
    // with look-up threads, switches to direct look-ups once one finished within the time-out,
    // and back to threads when a direct look-up took longer than the time-out.
    explicit BasicHttpClient(bool blockingLookup);
    // Disconnects and drops the client's share of the address holder. A look-up thread still
    // running is left to end by itself; it does not touch the client.
    ~BasicHttpClient();
    BasicHttpClient(const BasicHttpClient&) = delete;
    BasicHttpClient& operator=(const BasicHttpClient&) = delete;

    // Host name or dotted address; also the text of the "Host:" header.
    void SetHost(const std::string& host);
    std::string GetHost() const;
    void SetPort(uint16_t port);
    // Milliseconds; bounds the look-up wait, the connect, and each idle stretch of sending and
    // receiving. Not validated.
    void SetTimeout(uint32_t timeoutMs);
    // Milliseconds a kept connection may stay idle and still be reused. Any thread (locked).
    void SetKeepAliveTimeout(uint32_t keepAliveMs);
    // The keep-alive limit in force. Any thread (locked).
    uint32_t GetKeepAliveTimeout() {
        CScopedLock guard(lock);
        return keepAliveLimit;
    }

    // Connect, send, receive. Returns 0 when a complete response with status 200 arrived, else a
    // result code of net/constants.h. `status` and `serverKeepAlive` are set from any complete
    // response (also one that gives net::kResultStatusNotOk); `responseBody` only when the
    // request wants the body. The connection stays open only when the request asked for
    // keep-alive, the server answered "Connection: Keep-Alive" and the result is 0; any failure
    // closes it and keeps the socket error in GetLastError.
    int Request(const HttpRequest& request, uint32_t& status, bool& serverKeepAlive,
                std::string& responseBody);

    // The steps of Request. Connect reuses an open connection when `keepAlive` is set and it
    // has been idle for less than the keep-alive limit; it does not check that the peer still
    // holds it.
    int Connect(bool keepAlive);
    int SendRequest(const HttpRequest& request);
    int ReceiveResponse(uint32_t& status, bool& serverKeepAlive, bool wantBody,
                        std::string& responseBody);
    // Closes the connection, if any: shuts the sending side, drains what the peer still sends
    // for at most net::kDrainBudgetMs, closes. Also called by the owner directly.
    void Disconnect();

    // The socket error kept by the last Request: 0 after a success.
    int GetLastError() const { return lastError; }
    bool IsConnected() const { return socket != port::kInvalidSocket; }

    // Tests only: the resolver used from the next look-up on (the default is port::ResolveStream).
    void SetResolverForTesting(net::Resolver resolver);
    // Tests only: the current look-up mode, and a watch on the address holder (expires when the
    // client and every look-up thread it started have let go of it).
    bool IsDirectLookupForTesting() const { return directLookup; }
    std::weak_ptr<AddrInfoHolder> HolderForTesting() const { return holder; }

  private:
    int Resolve();
    int ResolveOnThread();
    int ResolveDirectly();
    int FinishConnect(int connectResult);
    static uint32_t Now() { return port::GetTickCount(); }
    uint32_t IdleSince(uint32_t then) const { return net::ElapsedTicks(then, Now()); }

    port::SocketHandle socket = port::kInvalidSocket;
    Transport transport;
    std::string host;
    uint16_t port = Transport::kDefaultPort;
    uint32_t timeout = net::kDefaultTimeoutMs;
    uint32_t keepAliveLimit = net::kDefaultKeepAliveMs;  // guarded by lock
    uint32_t lastUse = 0;  // tick at which a keep-alive request was fully sent; 0 when closed
    char receiveBuffer[net::kReceiveBufferSize];
    CCriticalSection lock;
    const bool blockingLookup;
    bool directLookup;
    CThread lookupThread;
    std::shared_ptr<AddrInfoHolder> holder;
    int lastError = 0;
    net::Resolver resolver;
};

extern template class BasicHttpClient<PlainTransport>;
extern template class BasicHttpClient<TlsTransport>;

using CAddrInfoHolder = BasicAddrInfoHolder<PlainTransport>;
using _DnsThreadData = BasicDnsThreadData<PlainTransport>;
using CAddrInfoHolder_https = BasicAddrInfoHolder<TlsTransport>;
using _DnsThreadData_https = BasicDnsThreadData<TlsTransport>;

// HTTP over a plain socket; default port 80.
class CHttpClient : public BasicHttpClient<PlainTransport> {
  public:
    explicit CHttpClient(bool blockingLookup) : BasicHttpClient(blockingLookup) {}

    // Process-wide start and stop of the socket layer (version 2.2). StartupWinsock returns
    // whether the layer is started afterwards; Connect gives net::kResultNotStarted until it
    // is. Called while no client is in use.
    static bool StartupWinsock() { return PlainTransport::Startup(); }
    static void CleanupWinsock() { PlainTransport::Cleanup(); }
};

// HTTP over TLS; default port 443. Differs from CHttpClient only in its transport and in the
// codes of its request path (net::kResultNoTlsContext to net::kResultTlsReceiveTimedOut).
class CHttpClient_https : public BasicHttpClient<TlsTransport> {
  public:
    explicit CHttpClient_https(bool blockingLookup) : BasicHttpClient(blockingLookup) {}

    // Process-wide start and stop of TLS; see TlsTransport::Startup and Cleanup. Called while
    // no client is in use.
    static void StartupTls(bool startWinsock) { TlsTransport::Startup(startWinsock); }
    static void CleanupTls() { TlsTransport::Cleanup(); }
};

}  // namespace qzdata_report_kelvo
