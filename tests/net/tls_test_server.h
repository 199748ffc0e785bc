// TLS peers for the network client tests: handlers for HttpTestServer that run a real TLS server
// (the test binary links the TLS library itself) with a key and self-signed certificate made in
// memory once per process. This header keeps the library's headers out, so that test sources
// including it may also include the client's own declarations.
#pragma once

#include <cstdint>
#include <string>

#include "support/http_test_server.h"

namespace qz_test {

// Handshakes, reads one request, answers `reply`, closes the session and waits for the peer.
HttpTestServer::Handler TlsRespond(std::string reply);
// Handshakes, then closes the connection with a reset.
HttpTestServer::Handler TlsHandshakeThenReset();
// Handshakes, then holds the connection without reading or answering.
HttpTestServer::Handler TlsHandshakeThenStall();
// Takes the first bytes of the client's handshake, then closes the connection.
HttpTestServer::Handler CloseDuringHandshake();

}  // namespace qz_test
