#include "apps/common/fastcgi/records.h"

#include <algorithm>

namespace fastcgi {

namespace {

constexpr std::size_t END_CONTENT = 8;

void appendHeader(std::string& out, RecordType type, unsigned short requestId, std::size_t length) {
    const auto append = [&out](std::size_t byte) { out += static_cast<char>(byte & 0xFF); };
    append(1); // version
    append(type);
    append(requestId >> 8);
    append(requestId);
    append(length >> 8);
    append(length);
    append(0); // padding
    append(0);
}

} // namespace

int decodeLength(const unsigned char*& cursor, int& remaining) {
    if (remaining < 1)
        return -1;
    const unsigned char first = *cursor++;
    --remaining;
    if (first < 128)
        return first;
    if (remaining < 3) {
        remaining = 0;
        return -1;
    }
    const int length = (first & 0x7F) << 24 | cursor[0] << 16 | cursor[1] << 8 | cursor[2];
    cursor += 3;
    remaining -= 3;
    return length;
}

bool takePair(std::string_view& content, Pair& pair) {
    const auto* data = reinterpret_cast<const unsigned char*>(content.data());
    int length = static_cast<int>(content.size());
    const int nameLength = decodeLength(data, length);
    const int valueLength = decodeLength(data, length);
    if (nameLength < 0 || valueLength < 0 || (nameLength == 0 && valueLength == 0))
        return false;
    if (nameLength > length || valueLength > length - nameLength) // their sum may not fit an int
        return false;
    content.remove_prefix(content.size() - static_cast<std::size_t>(length));
    pair.name = content.substr(0, static_cast<std::size_t>(nameLength));
    pair.value = content.substr(pair.name.size(), static_cast<std::size_t>(valueLength));
    content.remove_prefix(pair.name.size() + pair.value.size());
    return true;
}

void appendOutput(std::string& out, unsigned short requestId, std::string_view text) {
    for (; !text.empty(); text.remove_prefix(std::min<std::size_t>(text.size(), MAX_CONTENT))) {
        const std::string_view content = text.substr(0, MAX_CONTENT);
        appendHeader(out, Stdout, requestId, content.size());
        out += content;
    }
}

void appendEnd(std::string& out, unsigned short requestId) {
    appendHeader(out, EndRequest, requestId, END_CONTENT);
    out.append(END_CONTENT, '\0');
}

} // namespace fastcgi
