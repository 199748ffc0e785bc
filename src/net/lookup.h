// Name look-ups of the clients: the address holder shared between a client and its look-up
// threads, the data a look-up thread owns, and the thread function.
//
// A look-up that overruns the client's time-out is abandoned, never stopped. The thread owns its
// data and a share of the holder, so it stays memory-safe when the client is destroyed before it
// ends: the last share frees the holder and its list.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "port/socket_api.h"

namespace qzdata_report_kelvo {
namespace net {

// Resolver of a client, with the contract of port::ResolveStream. Called on look-up threads as
// well as on the client's thread; what it captures must outlive any thread it was given to.
using Resolver =
    std::function<int(const std::string& host, const std::string& service, port::AddrInfo** list)>;

// The port as the resolver's service text ("%u").
std::string FormatPort(uint16_t port);

// The resolver that a client starts with: port::ResolveStream, unless a test set another. Any
// thread.
Resolver DefaultResolver();
// Tests only: clients made from now on start with `resolver`; null restores port::ResolveStream.
// Lets a test reach the clients that the delivery engine makes for itself.
void SetDefaultResolverForTesting(Resolver resolver);

}  // namespace net

// Owns one resolver list (null when empty). Lives in a shared pointer: the client holds one share
// and each running look-up thread another. Written by a look-up thread, read by the client only
// after that thread has ended, so it needs no lock. `Tag` only keeps the two clients' types apart.
template <class Tag>
class BasicAddrInfoHolder {
  public:
    BasicAddrInfoHolder() = default;
    ~BasicAddrInfoHolder() { Clear(); }
    BasicAddrInfoHolder(const BasicAddrInfoHolder&) = delete;
    BasicAddrInfoHolder& operator=(const BasicAddrInfoHolder&) = delete;

    // Frees the current list, if any, and takes ownership of `list`.
    void Store(port::AddrInfo* list) {
        Clear();
        head = list;
    }
    // Frees the current list, if any.
    void Clear() {
        port::FreeResolved(head);
        head = nullptr;
    }
    // Head of the list, or null; owned by the holder.
    const port::AddrInfo* Head() const { return head; }

  private:
    port::AddrInfo* head = nullptr;
};

// One started look-up. Belongs to the look-up thread from its first instruction on: the client
// gives up the pointer when it starts the thread.
template <class Tag>
struct BasicDnsThreadData {
    std::string host;
    uint16_t port = 0;
    std::shared_ptr<BasicAddrInfoHolder<Tag>> holder;
    net::Resolver resolver;
};

// Look-up thread function (CThread::ThreadFunction); `argument` is a heap BasicDnsThreadData<Tag>,
// deleted here. Stores the resolved list in the holder; a failed or empty look-up stores nothing.
template <class Tag>
unsigned DnsThreadProc(void* argument) {
    std::shared_ptr<BasicDnsThreadData<Tag>> data(static_cast<BasicDnsThreadData<Tag>*>(argument));
    if (data && !data->host.empty() && data->holder && data->resolver) {
        data->holder->Clear();
        port::AddrInfo* list = nullptr;
        const int rc = data->resolver(data->host, net::FormatPort(data->port), &list);
        if (rc == 0 && list != nullptr) {
            data->holder->Store(list);
        } else if (list != nullptr) {
            port::FreeResolved(list);
        }
    }
    return 0;
}

}  // namespace qzdata_report_kelvo
