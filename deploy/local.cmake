# Default deployment profile: everything on loopback, for development, tests and the bundled
# collector. Values are cache variables so that -D on the command line wins.
set(QZ_STRATEGY_PASS "Tm9Qa" CACHE STRING "Pass string of the strategy blob cipher")
set(QZ_CONFIG_PASS "LarchCode" CACHE STRING "Pass string of the device configuration key")
set(QZ_REQUEST_SALT "BrickWardKey9" CACHE STRING "Salt of the request key, shared with the collector")
