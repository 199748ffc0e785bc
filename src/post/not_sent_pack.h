// The not-sent pack file: posts that one run could not hand to the delivery layer, kept in a
// binary file for the next run. Little-endian throughout:
//   header  magic "tzdr", post count (set when the writer closes)
//   entry   URL bytes (2 per UTF-16 unit, +2 for the terminator), flag byte, 3 padding bytes,
//           record count; the URL in UTF-16LE with its terminator; the pair count of each
//           record; a key size and a value size per pair (each counting its terminating zero);
//           then each key and value with its terminating zero, as raw bytes.
// Every part is read and written as one item, and a part of size 0 counts as failed: a post
// without records or without any pair cannot be written, and an entry like that ends a read.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "port/file_stream.h"
#include "post/constants.h"
#include "qzdata_report.h"

namespace qzdata_report_kelvo {
namespace post {

// The file header as it stands while a pack is written.
struct PackHeader {
    uint32_t magic = kPackMagic;
    uint32_t postCount = 0;
};

// Writes one pack file, entry by entry. Used by one thread at a time.
class NotSentPackWriter {
  public:
    NotSentPackWriter() = default;
    // Closes an open file as Close does.
    ~NotSentPackWriter() { Close(); }
    NotSentPackWriter(const NotSentPackWriter&) = delete;
    NotSentPackWriter& operator=(const NotSentPackWriter&) = delete;

    // Creates or truncates `path` and writes the header with a count of 0. False when the file
    // cannot be opened or the header not written; nothing is open then.
    bool Open(const std::wstring& path);

    // Appends the entry of one post (`records` is any container of ReportRecord, written in
    // its order). True when the whole entry was written; it then counts. False when a write
    // failed: the entry does not count, and the stream goes back to where the entry began, so
    // that a later entry takes its place.
    template <class Records>
    bool Write(const std::wstring& url, bool flag, const Records& records) {
        std::vector<const ReportRecord*> pointers;
        pointers.reserve(records.size());
        for (const ReportRecord& record : records) {
            pointers.push_back(&record);
        }
        return WriteEntry(url, flag, pointers);
    }

    // Rewrites the header with the number of entries that counted, and closes. True when
    // nothing was open, or when the header and every buffered byte reached the file.
    bool Close();

  private:
    bool WriteEntry(const std::wstring& url, bool flag,
                    const std::vector<const ReportRecord*>& records);

    port::FileStream packFile;
    PackHeader packHeader;
};

// Reads the pack at `path` and appends its entries, in file order, to `posts`: URL, flag and
// records; no callback or context. Reading stops at the first part that cannot be read whole,
// keeping the entries before it. A loaded URL holds the decoded text, then zero units up to a
// length of (URL bytes - 1), so it reads the same up to its terminator but is longer than the
// URL that was written. Returns false when the file does not open, is shorter than a header
// or has another magic (it is no pack, and nothing is appended); true otherwise, whatever the
// entries turned out to be. The file is closed on return. Any thread.
bool ReadNotSentPack(const std::wstring& path, std::vector<ReportPost>& posts);

}  // namespace post
}  // namespace qzdata_report_kelvo
