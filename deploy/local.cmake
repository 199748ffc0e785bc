# Default deployment profile: everything on loopback, for development, tests and the bundled
# collector. Values are cache variables so that -D on the command line wins.
set(QZ_STRATEGY_PASS "Tm9Qa" CACHE STRING "Pass string of the strategy blob cipher")
set(QZ_CONFIG_PASS "LarchCode" CACHE STRING "Pass string of the device configuration key")
set(QZ_REQUEST_SALT "BrickWardKey9" CACHE STRING "Salt of the request key, shared with the collector")

# Host roles: all on IPv4 loopback.
set(QZ_COLLECTOR_HOST "127.0.0.1" CACHE STRING "Collector of records and statistics")
set(QZ_AUX_HOST1 "127.0.0.1" CACHE STRING "Second collector host (default only)")
set(QZ_AUX_HOST2 "127.0.0.1" CACHE STRING "Third collector host (default only)")
set(QZ_STRATEGY_HOST "127.0.0.1" CACHE STRING "Server of the strategy blob")
set(QZ_CONFIG_HOST "127.0.0.1" CACHE STRING "Server of the device configuration (HTTPS)")
set(QZ_AUX_HOST3 "127.0.0.1" CACHE STRING "Fourth collector host (default only)")

# Ports above 1024, so that a bundled collector runs without privileges.
set(QZ_COLLECTOR_PORT "18080" CACHE STRING "HTTP port of records and statistics")
set(QZ_STRATEGY_PORT "18080" CACHE STRING "HTTP port of the strategy fetch")
set(QZ_CONFIG_PORT "18443" CACHE STRING "HTTPS port of the device configuration")

# Fallback addresses: 18 distinct loopback addresses, none of them 127.0.0.1, so that a test can
# tell a fallback attempt from an attempt on the host name. One /24 stands for one network.
set(QZ_FALLBACK_ADDRESSES
    "127.0.1.1;127.0.1.2;127.0.2.1;127.0.2.2;127.0.3.1;127.0.3.2"
    CACHE STRING "GET fallback: 3 pairs, each two hosts of one network")
set(QZ_POST_FALLBACK_ADDRESSES
    "127.0.4.1;127.0.4.2;127.0.5.1;127.0.5.2;127.0.6.1;127.0.6.2;127.0.7.1;127.0.7.2"
    CACHE STRING "POST fallback: 4 pairs, each two hosts of one network")
set(QZ_SPARE_FALLBACK_ADDRESSES
    "127.0.8.1;127.0.9.1;127.0.8.2;127.0.9.2"
    CACHE STRING "Spare list: 2 pairs in two networks, stored alternating")
