#include "net/plain_transport.h"

#include <atomic>

namespace qzdata_report_kelvo {

namespace {

std::atomic<bool> socketLayerStarted{false};

}  // namespace

bool PlainTransport::Startup() {
    if (!socketLayerStarted.load(std::memory_order_acquire) &&
        port::SocketStartup(net::kSocketVersion) == 0) {
        socketLayerStarted.store(true, std::memory_order_release);
    }
    return socketLayerStarted.load(std::memory_order_acquire);
}

void PlainTransport::Cleanup() {
    if (socketLayerStarted.load(std::memory_order_acquire)) {
        port::SocketCleanup();
        socketLayerStarted.store(false, std::memory_order_release);
    }
}

bool PlainTransport::IsStarted() {
    return socketLayerStarted.load(std::memory_order_acquire);
}

int PlainTransport::CheckAvailable() {
    return IsStarted() ? net::kResultOk : net::kResultNotStarted;
}

int PlainTransport::Write(port::SocketHandle socket, const char* data, int size) {
    return port::Send(socket, data, size);
}

int PlainTransport::Read(port::SocketHandle socket, char* buffer, int size) {
    return port::Recv(socket, buffer, size);
}

bool PlainTransport::WouldBlock(int /*result*/) {
    return port::GetLastSocketError() == net::kErrorWouldBlock;
}

}  // namespace qzdata_report_kelvo
