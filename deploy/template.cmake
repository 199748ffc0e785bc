# Production profile template. Copy this file, replace every placeholder, and configure with
#   cmake -S . -B build -DQZ_DEPLOYMENT=<your copy>
# Every value is a cache variable: a -D on the command line wins over the file. Configure
# refuses a profile whose lists have the wrong number of entries, whose addresses are not dotted
# IPv4 texts of at most 15 characters, or whose ports lie outside 1..65535.

# --- Pass strings, shared with the servers; the library builds its keys from them at run time.
# MD5 of this text is both the AES-128 key and the initialisation vector of the strategy blob.
# The strategy server enciphers with the same text (five characters in the original deployment).
set(QZ_STRATEGY_PASS "CHANGEME1" CACHE STRING "Pass string of the strategy blob cipher")
# Appended to the reply's time field; the MD5 text of both keys the device configuration.
set(QZ_CONFIG_PASS "CHANGEME2" CACHE STRING "Pass string of the device configuration key")
# Salt of the request key MD5(act + time + salt); the collector checks it.
set(QZ_REQUEST_SALT "CHANGEME3" CACHE STRING "Salt of the request key, shared with the collector")

# --- Host roles, names in the collector domain of the deployment (example.com is a placeholder).
# Records, statistics and failure lines: plain HTTP GET to this host on QZ_COLLECTOR_PORT.
set(QZ_COLLECTOR_HOST "collector.example.com" CACHE STRING "Collector of records and statistics")
# Three more collector hosts that the library holds as defaults without sending to them.
set(QZ_AUX_HOST1 "collector2.example.com" CACHE STRING "Second collector host (default only)")
set(QZ_AUX_HOST2 "collector3.example.com" CACHE STRING "Third collector host (default only)")
# The strategy blob, "/zhsdkinfo.php?ver=1", plain HTTP on QZ_STRATEGY_PORT, no fallback.
set(QZ_STRATEGY_HOST "strategy.example.com" CACHE STRING "Server of the strategy blob")
# The device configuration, "/api/getDeviceConfig?sys=10", HTTPS on QZ_CONFIG_PORT, no fallback.
set(QZ_CONFIG_HOST "config.example.com" CACHE STRING "Server of the device configuration (HTTPS)")
set(QZ_AUX_HOST3 "collector4.example.com" CACHE STRING "Fourth collector host (default only)")

# --- Ports of the production servers.
set(QZ_COLLECTOR_PORT "80" CACHE STRING "HTTP port of records and statistics")
set(QZ_STRATEGY_PORT "80" CACHE STRING "HTTP port of the strategy fetch")
set(QZ_CONFIG_PORT "443" CACHE STRING "HTTPS port of the device configuration")

# --- Fallback addresses of the collector, used on the collector's port when the host name
# failed twice. The placeholders are documentation addresses (192.0.2.0/24, 198.51.100.0/24,
# 203.0.113.0/24); a pair shares one network, the pick among all entries is uniform.
# GET requests (every record and line): exactly 6 entries, 3 pairs.
set(QZ_FALLBACK_ADDRESSES
    "192.0.2.10;192.0.2.11;198.51.100.10;198.51.100.11;203.0.113.10;203.0.113.11"
    CACHE STRING "GET fallback: 3 pairs, each two hosts of one network")
# POST requests (none in practice, the list must still exist): exactly 8 entries, 4 pairs.
set(QZ_POST_FALLBACK_ADDRESSES
    "192.0.2.20;192.0.2.21;192.0.2.150;192.0.2.151;198.51.100.20;198.51.100.21;203.0.113.20;203.0.113.21"
    CACHE STRING "POST fallback: 4 pairs, each two hosts of one network")
# Spare list without a reader: exactly 4 entries, 2 pairs in two networks stored alternating
# (first of one, first of the other, second of one, second of the other).
set(QZ_SPARE_FALLBACK_ADDRESSES
    "198.51.100.30;203.0.113.30;198.51.100.31;203.0.113.31"
    CACHE STRING "Spare list: 2 pairs in two networks, stored alternating")
