// DES-ECB deciphering of the device configuration.
#pragma once

#include <string>

namespace qzdata_report_kelvo {

// Deciphers each full 8-byte block of `cipher` with the first 8 characters of `key` as the DES
// key (taken as they stand, no parity fix) and appends the result to `plain`; a trailing part
// of fewer than 8 bytes is ignored. Then removes padding of v bytes of value v (1 to 8) when
// all of them match; padding that does not match stays. Does nothing when `cipher` is empty or
// `key` is shorter than 8 characters. Without the crypto library each block is copied as it is.
void DecodeDesBlock(const std::string& key, const std::string& cipher, std::string& plain);

}  // namespace qzdata_report_kelvo
