// Per-user store seam: small named values under keys of the current user, kept beyond the
// process. Shaped like the per-user registry: a key is opened or created, values are queried into
// the caller's fixed buffer and set as text, and the key is closed. Key paths are relative to the
// user's root, with `\` between levels; value names are narrow strings. Every operation may run
// on any thread; one open key is used by one thread at a time.
#pragma once

#include <cstdint>
#include <string>

namespace qzdata_report_kelvo {
namespace port {

// An open key; made by OpenUserKey or CreateUserKey, owned by the caller until CloseUserKey.
class UserKey;

enum class UserKeyAccess {
    kQuery,  // values may be queried
    kWrite,  // values may be set
    kAll,    // both
};

// Opens the existing key `path`. False (and `*key` null) when it does not exist or the access is
// refused.
bool OpenUserKey(const std::string& path, UserKeyAccess access, UserKey** key);

// Opens the key `path`, creating it and any missing level above it first. False (and `*key`
// null) when it can neither be created nor opened.
bool CreateUserKey(const std::string& path, UserKeyAccess access, UserKey** key);

// Closes `key`; null is allowed and does nothing.
void CloseUserKey(UserKey* key);

enum class UserValueType {
    kNone,   // no value was read
    kText,   // a text: bytes with their terminating zero
    kOther,  // anything else this user's store may hold
};

enum class UserQueryResult {
    kSuccess,   // the value is in the buffer; `*size` is its stored size
    kMoreData,  // the value is larger than the buffer; `*size` is its stored size and the buffer
                // holds nothing usable
    kNotFound,  // no such value
    kFailed,    // no query access, or any other error; `*size` and the buffer are unspecified
};

// Reads the value `name` of `key` into `buffer`, which has room for `*size` bytes. The stored
// bytes are returned as they are: no terminating zero is added. Bytes of the buffer beyond the
// stored size stay as they were. `type` may be null.
UserQueryResult QueryUserValue(UserKey* key, const std::string& name, UserValueType* type,
                               void* buffer, uint32_t* size);

// Stores `size` bytes at `data` as the text value `name` of `key`, replacing any earlier value
// as a whole. The caller includes the terminating zero in `size`. False when nothing changed.
bool SetUserTextValue(UserKey* key, const std::string& name, const void* data, uint32_t size);

}  // namespace port
}  // namespace qzdata_report_kelvo
