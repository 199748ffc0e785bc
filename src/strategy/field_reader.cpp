#include "strategy/field_reader.h"

namespace qzdata_report_kelvo {

namespace {

bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

// The sign position: only the first byte of a field wider than one byte.
bool IsSignPosition(size_t index, size_t width) {
    return index == 0 && width > 1;
}

}  // namespace

bool StrategyFieldReader::CanRead(size_t width) const {
    return cursor < text.size() && text.size() - cursor >= width;
}

bool StrategyFieldReader::ReadUnsigned(size_t width, uint64_t& value) {
    if (!CanRead(width)) {
        return false;
    }
    value = 0;
    for (size_t i = 0; i < width; ++i) {
        const char c = text[cursor + i];
        if (IsSignPosition(i, width) && c == '+') {
            continue;
        }
        if (!IsDigit(c)) {
            return false;
        }
        value = value * 10 + static_cast<uint64_t>(c - '0');
    }
    cursor += width;
    return true;
}

bool StrategyFieldReader::ReadSigned(size_t width, int64_t& value) {
    if (!CanRead(width)) {
        return false;
    }
    int64_t magnitude = 0;
    bool negative = false;
    for (size_t i = 0; i < width; ++i) {
        const char c = text[cursor + i];
        if (IsSignPosition(i, width) && (c == '+' || c == '-')) {
            negative = c == '-';
            continue;
        }
        if (c == ' ') {
            if (i == 0) {
                return false;
            }
            break;
        }
        if (!IsDigit(c)) {
            return false;
        }
        magnitude = magnitude * 10 + (c - '0');
    }
    value = negative ? -magnitude : magnitude;
    cursor += width;
    return true;
}

bool StrategyFieldReader::ReadString(size_t width, std::string& value) {
    if (!CanRead(width)) {
        return false;
    }
    value.assign(text, cursor, width);
    cursor += width;
    return true;
}

}  // namespace qzdata_report_kelvo
