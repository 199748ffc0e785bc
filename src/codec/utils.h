// Small stateless routines shared by the subsystems: number and time text, GUID text, directory
// creation, the request key and signed "/c.gif?" request, and URL escaping. None holds state
// beyond a table built once; all may be called from any thread.
#pragma once

#include <cstdint>
#include <string>

namespace qzdata_report_kelvo {

// Number text, appended to `text` or returned new ("%u", "%d", "%.0f", "%llu", "%lu").
void AppendNumber(std::string& text, uint16_t value);
void AppendNumber(std::string& text, int32_t value);
void AppendNumber(std::string& text, double value);
void AppendNumber(std::string& text, uint64_t value);
std::string Int32ToString(int32_t value);
std::string UInt32ToString(uint32_t value);
std::string UInt64ToString(uint64_t value);
std::string UInt16ToString(uint16_t value);

// Local time as 17 digits, year to milliseconds, no separators ("20161231235959123").
std::string FormatLocalStamp();

// Seconds since 1970, cut to 32 bits and printed signed, followed by one tab.
std::string FormatNowField();

// Seconds from `time` (seconds since 1970) to now.
double SecondsSince(int64_t time);

// A new random (version 4) GUID as 32 lower-case hexadecimal digits, no dashes. All zeros when
// no random source answers.
std::string FormatGuidText();

// Creates the directory `path` and its missing parents ("/" and "\" both separate). True when
// it exists as a directory afterwards, also when another thread made it first; false for an
// empty path or when a plain file stands in the way.
bool EnsureDirectory(const std::string& path);

// `key` becomes the lower-case hexadecimal MD5 of `text`; empty for an empty `text`.
void RequestKey(const std::string& text, std::string& key);

// `query` becomes ["act=" act "&action=" guid] "&key=" K "&time=" T ["&"] extra, where T is the
// low 32 bits of `time` as signed decimal and K = RequestKey(act + T + salt). Only `act` and the
// time are signed; "&" is put before a non-empty `extra` unless it already begins with one.
void BuildSignedQuery(const std::string& extra, const std::string& act, std::string& query,
                      const std::string& guid, int64_t time, bool withAct);

// A signed request for `act` with `extra` parameters: `guid` gets a fresh GUID, `time` the
// seconds since 1970, `query` the signed query (BuildSignedQuery without act) and `path`
// "/c.gif?act=" act "&smkdata=0". Every output is overwritten. Returns true.
bool BuildGifUrl(const std::string& extra, const std::string& act, std::string& path,
                 std::string& query, std::string& guid, int64_t& time);

// `output` becomes `input` with every byte outside the keep set written as "%XX" (upper-case
// hex). Of printable ASCII only blank, '"', '#', '%', '&', '+', ',', '=' and '\' are escaped.
void EscapeUrl(const std::string& input, std::string& output);

}  // namespace qzdata_report_kelvo
