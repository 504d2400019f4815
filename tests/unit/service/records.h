#pragma once

#include <poll.h>
#include <string>
#include <string_view>
#include <sys/socket.h>
#include <unistd.h>

/// FastCGI as the web server speaks it, for tests that hold the bytes in their own hands.
namespace records {

inline std::string record(int type, std::string_view content, int padding = 0, int requestId = 1) {
    const auto byte = [](std::size_t value) { return static_cast<char>(value & 0xFF); };
    const std::size_t id = static_cast<std::size_t>(requestId);
    std::string bytes{1, byte(static_cast<std::size_t>(type)), byte(id >> 8), byte(id)};
    bytes += {byte(content.size() >> 8), byte(content.size()), byte(static_cast<std::size_t>(padding)), 0};
    return bytes.append(content).append(static_cast<std::size_t>(padding), '#');
}

inline std::string begin(bool keep = false, int requestId = 1) {
    return record(1, std::string("\0\1", 2) + (keep ? '\1' : '\0') + std::string(5, '\0'), 0, requestId);
}

inline std::string pair(std::string_view name, std::string_view value) {
    return std::string{static_cast<char>(name.size()), static_cast<char>(value.size())}.append(name).append(
        value);
}

/// A whole request: what a web server sends for `script` with `body`.
inline std::string request(std::string_view script, std::string_view body = "", bool keep = false,
                           int requestId = 1) {
    std::string bytes = begin(keep, requestId) + record(4, pair("SCRIPT_NAME", script), 3, requestId) +
                        record(4, "", 0, requestId);
    if (!body.empty())
        bytes += record(5, body, 1, requestId);
    return bytes + record(5, "", 0, requestId);
}

/// What has arrived on a socket, without waiting.
inline std::string received(int fd) {
    std::string bytes;
    char chunk[4096];
    for (ssize_t n = 0; (n = recv(fd, chunk, sizeof(chunk), MSG_DONTWAIT)) > 0;)
        bytes.append(chunk, static_cast<std::size_t>(n));
    return bytes;
}

const std::string END_RECORD = std::string("\1\3\0\1\0\10\0\0", 8) + std::string(8, '\0');

} // namespace records
