// TLS peers for the network client tests: handlers for HttpTestServer that run a real TLS server
// (the test binary links the TLS library itself) with a key and self-signed certificate made in
// memory once per process. This header keeps the library's headers out, so that test sources
// including it may also include the client's own declarations.
#pragma once

#include <string>

#include "support/http_test_server.h"

namespace qz_test {

// What the peer does after the handshake: reads one request, answers `reply` and closes the
// session; closes the connection with a reset; or holds it without reading or answering.
enum class TlsThen { Respond, Reset, Stall };
HttpTestServer::Handler TlsPeer(TlsThen then, std::string reply = "");

}  // namespace qz_test
