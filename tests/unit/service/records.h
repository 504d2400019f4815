#pragma once

#include "apps/web/service/fcgi.h"
#include "apps/web/service/request.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <gtest/gtest.h>
#include <list>
#include <string>
#include <string_view>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

/// FastCGI records as the web server sends them.
namespace records {

inline std::string record(int type, std::string_view content, int padding = 0, int requestId = 1) {
    const auto byte = [](std::size_t value) { return static_cast<char>(value & 0xFF); };
    const std::size_t id = static_cast<std::size_t>(requestId);
    std::string bytes{1, byte(static_cast<std::size_t>(type)), byte(id >> 8), byte(id)};
    bytes += {byte(content.size() >> 8), byte(content.size()), byte(static_cast<std::size_t>(padding)), 0};
    return bytes.append(content).append(static_cast<std::size_t>(padding), '#');
}

/// A name and a value of less than 64 KiB; lengths above 127 have four bytes.
inline std::string pair(std::string_view name, std::string_view value) {
    const auto length = [](std::size_t size) {
        const char low = static_cast<char>(size);
        return size < 128 ? std::string(1, low) : std::string{'\x80', 0, static_cast<char>(size >> 8), low};
    };
    return length(name.size()).append(length(value.size())).append(name).append(value);
}

/// A whole request for `script`; `params` are further pairs.
inline std::string request(std::string_view script, std::string_view body = "", bool keep = false,
                           int requestId = 1, const std::string& params = "") {
    const std::string begin = std::string("\0\1", 2) + (keep ? '\1' : '\0') + std::string(5, '\0');
    return record(1, begin, 0, requestId) + record(4, pair("SCRIPT_NAME", script) + params, 3, requestId) +
           record(4, "", 0, requestId) + (body.empty() ? "" : record(5, body, 1, requestId)) +
           record(5, "", 0, requestId);
}

/// The bytes that have arrived on a socket.
inline std::string received(int fd) {
    std::string bytes;
    char chunk[4096];
    for (ssize_t n = 0; (n = recv(fd, chunk, sizeof(chunk), MSG_DONTWAIT)) > 0;)
        bytes.append(chunk, static_cast<std::size_t>(n));
    return bytes;
}

/// Whether the other end has closed the connection, and its bytes are read.
inline bool isClosed(int fd) {
    char byte;
    return recv(fd, &byte, 1, MSG_DONTWAIT) == 0;
}

const std::string END_RECORD = std::string("\1\3\0\1\0\10\0\0", 8) + std::string(8, '\0');

inline std::ptrdiff_t openDescriptors() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

/// The text that records carry to standard output, without their headers.
inline std::string content(std::string_view bytes) {
    std::string text;
    while (bytes.size() >= 8) {
        const auto byte = [&](std::size_t i) { return std::size_t{static_cast<unsigned char>(bytes[i])}; };
        const std::size_t length = byte(4) * 256 + byte(5);
        text += byte(1) == 6 ? bytes.substr(8, length) : "";
        bytes.remove_prefix(std::min(bytes.size(), 8 + length + byte(6)));
    }
    return text;
}

/// Makes a listening local socket the standard input, as systemd passes it.
inline sockaddr_un listenOnStandardInput() {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    static int count = 0; // a child of the test before may still have its socket
    std::snprintf(address.sun_path + 1, sizeof(address.sun_path) - 1, "webservice-test-%i-%i", getpid(),
                  ++count);
    close(STDIN_FILENO); // the next descriptor takes its place
    EXPECT_EQ(socket(AF_UNIX, SOCK_STREAM, 0), STDIN_FILENO);
    EXPECT_EQ(bind(STDIN_FILENO, reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
    EXPECT_EQ(listen(STDIN_FILENO, 10), 0);
    return address;
}

/// A listener in this process and its clients. On a local socket, sent bytes have arrived when send returns.
class ListenerTest : public testing::Test, public Fcgi::RequestCallback {
protected:
    ListenerTest() { fcgi_.callback = this; }
    ~ListenerTest() override {
        for (const int client : clients_)
            close(client);
    }

    void handleRequest(Request* request) override {
        request_ = request;
        answer_(*request);
    }

    void send(int client, std::string_view bytes) {
        EXPECT_EQ(::send(client, bytes.data(), bytes.size(), MSG_NOSIGNAL), std::ssize(bytes));
        turn();
    }

    int connectedClient() {
        const int client = clients_.emplace_back(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
        EXPECT_EQ(connect(client, reinterpret_cast<const sockaddr*>(&address_), sizeof(address_)), 0);
        return client;
    }

    /// Returns a new client that has sent `bytes`.
    int send(std::string_view bytes) {
        const int client = connectedClient();
        send(client, bytes);
        return client;
    }

    void drop(int client) {
        close(client);
        clients_.remove(client);
        turn();
    }

    /// Runs the loop until it is idle. Fails when it spins.
    void turn() {
        int turns = 0;
        while (poll_.wait(0, true) == EventPoll::Dispatched && ++turns < 10000) {
        }
        EXPECT_LT(turns, 10000);
    }

    EventPoll poll_;
    sockaddr_un address_ = listenOnStandardInput();
    Fcgi fcgi_{poll_};
    std::list<int> clients_;
    Request* request_ = nullptr; // the last one
    std::function<void(Request&)> answer_ = [](Request& request) {
        if (request.param("SCRIPT_NAME") == "/wait")
            request.context = 0;
        else
            request.end();
    };
};

} // namespace records
