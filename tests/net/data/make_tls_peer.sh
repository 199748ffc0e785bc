#!/bin/sh
# Makes tls_peer.pem: the key and the self-signed certificate (CN 127.0.0.1, valid for 100 years)
# of the loopback TLS peer in tls_client_test.cpp. The client does not verify certificates, so
# any key and name would do; a file saves every test process from making one.
set -e
cd "$(dirname "$0")"
openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -days 36500 \
  -subj /CN=127.0.0.1 -keyout tls_peer.pem -out tls_peer.crt
cat tls_peer.crt >> tls_peer.pem
rm tls_peer.crt
