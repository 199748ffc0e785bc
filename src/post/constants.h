// Fixed values of the posting pipeline: the worker, its queue and the record format.
#pragma once

#include <cstddef>
#include <cstdint>

namespace qzdata_report_kelvo {
namespace post {

// Largest number of records in one queued post; longer batches are cut into runs of this size.
inline constexpr size_t kRecordsPerPost = 20;

// Sent single-record posts kept for reuse by posting threads (about a kilobyte each).
inline constexpr size_t kMaxSparePosts = 512;

// Posts the worker's drain buffer keeps room for after a drain; a burst's larger buffer is
// given back, so that memory returns to its level once the queue has drained.
inline constexpr size_t kKeptQueueCapacity = 256;

// Empty turns (about 1 ms each) the worker makes before it waits for the next post: a host
// that reports steadily never pays for waking it, and an idle library soon stops turning.
inline constexpr uint32_t kIdleTurnsBeforeWait = 20;

// Agent text of the worker when its creator names none.
inline constexpr wchar_t kDefaultUserAgent[] = L"HttpPost by qzdata_report";

// Escaping of record values: the marks that strict escaping keeps besides ASCII letters and
// digits, and the marks that lenient escaping escapes besides the bytes up to 32.
inline constexpr char kStrictKeptMarks[] = "-_.!~*'()";
inline constexpr char kLenientEscapedMarks[] = "\\\"^&`<>[]{}";

// Initial escape scratch: serves sources up to kEscapeCapacity bytes; grows to 3 * length + 1.
inline constexpr uint32_t kEscapeCapacity = 341;
inline constexpr uint32_t kEscapeBufferSize = 1024;

// Reserve of the working query string of one record.
inline constexpr size_t kQueryReserve = 1024;

// Long record keys and their short wire names. Exact, case-sensitive; "brower_version" is the
// spelling the hosts use.
struct ParamNameRow {
    const char* longName;
    const char* shortName;
};
inline constexpr ParamNameRow kParamNames[] = {
    {"action", "act"},
    {"duration", "dur"},
    {"atime", "ati"},
    {"flag", "fla"},
    {"product", "pro"},
    {"proxy_ip", "pip"},
    {"stime", "sti"},
    {"passport", "pas"},
    {"game", "gam"},
    {"game_server", "gse"},
    {"run_source", "rso"},
    {"iver", "ive"},
    {"uver", "uve"},
    {"channel", "cha"},
    {"referrer", "ref"},
    {"brower_version", "bve"},
    {"screen_resolution", "sre"},
    {"screen_color", "sco"},
    {"local_language", "lla"},
    {"java", "jav"},
    {"cookies", "coo"},
    {"net_version", "nve"},
    {"param", "par"},
};

// Names that stand at the top level of the record query (matched without regard to case);
// every other key travels inside "extra".
inline constexpr const char* kKnownParamNames[] = {
    "act", "uid", "pro", "dur", "ati",       "fla",      "mid",  "pip", "sti", "pas", "gam",
    "gse", "rso", "ive", "uve", "cha",       "ref",      "pid",  "os",  "bve", "sre", "sco",
    "lla", "jav", "coo", "nve", "kelvo_mid", "province", "city", "isp", "pl",
};

// Members of "extra" whose values are escaped on their own before "extra" is escaped as a
// whole (matched without regard to case).
inline constexpr const char* kEscapedParamNames[] = {
    "content", "rso_desc", "eid_desc", "channel_desc", "ref_desc",
};

// Not-sent pack file: "tzdr" read as a little-endian 32-bit value, and the fixed sizes of the
// file header (magic, post count) and of an entry header (URL bytes, flag, 3 padding bytes,
// record count).
inline constexpr uint32_t kPackMagic = 0x72647A74;
inline constexpr size_t kPackHeaderSize = 8;
inline constexpr size_t kPackEntryHeaderSize = 12;

}  // namespace post
}  // namespace qzdata_report_kelvo
