#include "post/not_sent_pack.h"

#include <limits>

namespace qzdata_report_kelvo {
namespace post {

namespace {

using port::FileStream;

// Byte buffers are std::string; values go in byte by byte, so the host's byte order plays no
// part.
void AppendU16(std::string& bytes, uint32_t value) {
    bytes.push_back(static_cast<char>(value & 0xFF));
    bytes.push_back(static_cast<char>((value >> 8) & 0xFF));
}

void AppendU32(std::string& bytes, uint32_t value) {
    AppendU16(bytes, value & 0xFFFF);
    AppendU16(bytes, value >> 16);
}

uint32_t LoadU16(const std::string& bytes, size_t at) {
    return static_cast<uint32_t>(static_cast<unsigned char>(bytes[at])) |
           static_cast<uint32_t>(static_cast<unsigned char>(bytes[at + 1])) << 8;
}

uint32_t LoadU32(const std::string& bytes, size_t at) {
    return LoadU16(bytes, at) | LoadU16(bytes, at + 2) << 16;
}

constexpr uint32_t kHighSurrogate = 0xD800;
constexpr uint32_t kLowSurrogate = 0xDC00;
constexpr uint32_t kSurrogateEnd = 0xE000;
constexpr uint32_t kReplacement = 0xFFFD;

// The file holds UTF-16 whatever the width of wchar_t: a wide character beyond the BMP (only
// a 32-bit wchar_t holds one) becomes a surrogate pair.
void AppendUtf16(std::string& bytes, const std::wstring& text) {
    for (const wchar_t unit : text) {
        const uint32_t value = static_cast<uint32_t>(unit);
        if (value <= 0xFFFF) {
            AppendU16(bytes, value);
        } else if (value <= 0x10FFFF) {
            AppendU16(bytes, kHighSurrogate + ((value - 0x10000) >> 10));
            AppendU16(bytes, kLowSurrogate + (value & 0x3FF));
        } else {
            AppendU16(bytes, kReplacement);
        }
    }
}

// The first `units` UTF-16LE units of `bytes`. A surrogate pair becomes one wide character
// where wchar_t can hold it; anything else, lone surrogates included, is kept unit for unit.
std::wstring DecodeUtf16(const std::string& bytes, size_t units) {
    constexpr uint32_t kWideMax = static_cast<uint32_t>(std::numeric_limits<wchar_t>::max());
    std::wstring text;
    text.reserve(units);
    for (size_t i = 0; i < units; ++i) {
        const uint32_t unit = LoadU16(bytes, 2 * i);
        if (unit >= kHighSurrogate && unit < kLowSurrogate && i + 1 < units) {
            const uint32_t next = LoadU16(bytes, 2 * i + 2);
            const uint32_t value =
                0x10000 + ((unit - kHighSurrogate) << 10) + (next - kLowSurrogate);
            if (next >= kLowSurrogate && next < kSurrogateEnd && value <= kWideMax) {
                text.push_back(static_cast<wchar_t>(value));
                ++i;
                continue;
            }
        }
        text.push_back(static_cast<wchar_t>(unit));
    }
    return text;
}

// One part of an entry, written as one item.
bool WritePart(FileStream& file, const std::string& bytes) {
    return file.Write(bytes.data(), bytes.size(), 1) == 1;
}

bool WriteHeader(FileStream& file, const PackHeader& header) {
    std::string bytes;
    AppendU32(bytes, header.magic);
    AppendU32(bytes, header.postCount);
    return WritePart(file, bytes);
}

// Reads parts of one file, each as one item. A part larger than what is left of the file
// fails before any memory is taken for it, as its read would.
class PartReader {
  public:
    explicit PartReader(FileStream& file) : file(file), size(file.Size()) {}

    bool Read(std::string& bytes, uint64_t count) {
        const int64_t at = file.Tell();
        if (at < 0 || size < at || count > static_cast<uint64_t>(size - at)) {
            return false;
        }
        bytes.resize(static_cast<size_t>(count));
        return file.Read(&bytes[0], bytes.size(), 1) == 1;
    }

  private:
    FileStream& file;
    int64_t size;
};

bool ReadEntry(PartReader& reader, ReportPost& post) {
    std::string header;
    if (!reader.Read(header, kPackEntryHeaderSize)) {
        return false;
    }
    const uint32_t urlBytes = LoadU32(header, 0);
    post.flag = header[4] != 0;
    const uint32_t recordCount = LoadU32(header, 8);

    std::string url;
    if (!reader.Read(url, urlBytes)) {
        return false;
    }
    // The stored length counts bytes less one, not units: the text fills only its front.
    post.url.assign(urlBytes - 1, L'\0');
    const std::wstring text = DecodeUtf16(url, urlBytes / 2);
    post.url.replace(0, text.size(), text);

    std::string counts;
    if (!reader.Read(counts, uint64_t{4} * recordCount)) {
        return false;
    }
    uint64_t pairs = 0;
    for (uint32_t i = 0; i < recordCount; ++i) {
        pairs += LoadU32(counts, 4 * i);
    }
    std::string sizes;
    if (!reader.Read(sizes, 8 * pairs)) {
        return false;
    }
    uint64_t textBytes = 0;
    for (uint64_t i = 0; i < 2 * pairs; ++i) {
        const uint32_t size = LoadU32(sizes, 4 * i);
        if (size == 0) {  // no room for the terminator: the sizes are damaged
            return false;
        }
        textBytes += size;
    }
    std::string strings;
    if (!reader.Read(strings, textBytes)) {
        return false;
    }

    post.records.assign(recordCount, ReportRecord());
    size_t sizeAt = 0;
    size_t textAt = 0;
    for (uint32_t i = 0; i < recordCount; ++i) {
        for (uint32_t pair = LoadU32(counts, 4 * i); pair > 0; --pair) {
            const uint32_t keySize = LoadU32(sizes, sizeAt);
            const uint32_t valueSize = LoadU32(sizes, sizeAt + 4);
            sizeAt += 8;
            std::string key = strings.substr(textAt, keySize - 1);
            textAt += keySize;
            post.records[i].emplace(std::move(key), strings.substr(textAt, valueSize - 1));
            textAt += valueSize;
        }
    }
    return true;
}

}  // namespace

bool NotSentPackWriter::Open(const std::wstring& path) {
    Close();
    packHeader = PackHeader();
    if (!packFile.Open(path, FileStream::Mode::kWrite)) {
        return false;
    }
    if (!WriteHeader(packFile, packHeader)) {
        packFile.Close();
        return false;
    }
    return true;
}

bool NotSentPackWriter::WriteEntry(const std::wstring& url, bool flag,
                                   const std::vector<const ReportRecord*>& records) {
    const int64_t start = packFile.Tell();
    std::string urlPart;
    AppendUtf16(urlPart, url);
    AppendU16(urlPart, 0);
    std::string header;
    AppendU32(header, static_cast<uint32_t>(urlPart.size()));
    header.push_back(flag ? 1 : 0);
    header.append(3, '\0');
    AppendU32(header, static_cast<uint32_t>(records.size()));

    std::string counts;
    std::string sizes;
    std::string strings;
    for (const ReportRecord* record : records) {
        AppendU32(counts, static_cast<uint32_t>(record->size()));
        for (const auto& [key, value] : *record) {
            AppendU32(sizes, static_cast<uint32_t>(key.size() + 1));
            AppendU32(sizes, static_cast<uint32_t>(value.size() + 1));
            strings.append(key).push_back('\0');
            strings.append(value).push_back('\0');
        }
    }
    for (const std::string* part : {&header, &urlPart, &counts, &sizes, &strings}) {
        if (!WritePart(packFile, *part)) {
            packFile.Seek(start);
            return false;
        }
    }
    ++packHeader.postCount;
    return true;
}

bool NotSentPackWriter::Close() {
    if (!packFile.IsOpen()) {
        return true;
    }
    const bool headerWritten = packFile.Seek(0) && WriteHeader(packFile, packHeader);
    return packFile.Close() && headerWritten;
}

bool ReadNotSentPack(const std::wstring& path, std::vector<ReportPost>& posts) {
    FileStream file;
    if (!file.Open(path, FileStream::Mode::kRead)) {
        return false;
    }
    PartReader reader(file);
    std::string header;
    if (!reader.Read(header, kPackHeaderSize) || LoadU32(header, 0) != kPackMagic) {
        return false;
    }
    const uint32_t postCount = LoadU32(header, 4);
    for (uint32_t i = 0; i < postCount; ++i) {
        ReportPost post;
        if (!ReadEntry(reader, post)) {
            break;
        }
        posts.push_back(std::move(post));
    }
    return true;
}

}  // namespace post
}  // namespace qzdata_report_kelvo
