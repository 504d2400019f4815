// Sends an HTTP request again and again over kept connections to 127.0.0.1, each time when the answer is
// complete, and prints figures. For boards: wrk does not run on 32-bit ARM.

#include "apps/common/diagnostics/diagnostics.h"
#include "apps/common/files/descriptor.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <netinet/in.h>
#include <poll.h>
#include <stdexcept>
#include <string>
#include <string_view>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

namespace {

constexpr const char* USAGE = "usage: closedloop PORT PATH SECONDS CONNECTIONS [BODY]\n"
                              "prints: answers per second, median and 99th percentile in us, errors";
constexpr const char* LENGTH = "\r\nContent-Length: ";
constexpr const char* LAST_CHUNK = "\r\n0\r\n\r\n";
constexpr std::size_t BUFFER_SIZE = 256UL * 1024;
constexpr int WAIT_MS = 60'000;

using Clock = std::chrono::steady_clock;

std::string makeRequest(const std::string& path, const char* body) {
    const std::string rest = " HTTP/1.1\r\nHost: localhost";
    if (body == nullptr)
        return "GET " + path + rest + "\r\n\r\n";
    const std::string_view content = body;
    return "POST " + path + rest + LENGTH + std::to_string(content.size()) + "\r\n\r\n" + body;
}

// One connection with one request under way.
class Exchange {
public:
    explicit Exchange(int port) : fd_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<in_port_t>(port));
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        if (connect(fd_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
            throwErrorNumber(__FILE__, __LINE__, "connect");
    }

    int descriptor() const { return fd_.get(); }
    Clock::time_point begin() const { return begin_; }
    bool isGood() const { return head_.starts_with("HTTP/1.1 200"); }

    void send(const std::string& request) {
        begin_ = Clock::now();
        head_.clear();
        bodyBytes_ = 0;
        isInBody_ = false;
        if (write(fd_.get(), request.data(), request.size()) != static_cast<ssize_t>(request.size()))
            throwErrorNumber(__FILE__, __LINE__, "write");
    }

    // Reads what is there and returns whether the answer is complete.
    bool receive() {
        const ssize_t count = read(fd_.get(), buffer.data(), buffer.size());
        if (count <= 0)
            throw std::runtime_error("the server closes the connection");
        const std::string_view bytes(buffer.data(), static_cast<std::size_t>(count));
        return isInBody_ ? isComplete(bytes) : isHeadComplete(bytes);
    }

private:
    bool isHeadComplete(std::string_view bytes) {
        head_.append(bytes);
        const std::size_t end = head_.find("\r\n\r\n");
        if (end == std::string::npos)
            return false;
        const std::string first = head_.substr(end + 4);
        head_.resize(end + 2);
        const std::size_t length = head_.find(LENGTH);
        isChunked_ = length == std::string::npos;
        length_ = isChunked_
                      ? 0
                      : std::strtoul(head_.c_str() + length + std::string_view(LENGTH).size(), nullptr, 10);
        tail_.clear();
        isInBody_ = true;
        return isComplete(first);
    }

    bool isComplete(std::string_view bytes) {
        bodyBytes_ += bytes.size();
        if (!isChunked_)
            return bodyBytes_ >= length_;
        tail_.append(bytes.substr(bytes.size() - std::min<std::size_t>(bytes.size(), 7)));
        tail_.erase(0, tail_.size() - std::min<std::size_t>(tail_.size(), 7));
        return tail_ == LAST_CHUNK;
    }

    static inline std::array<char, BUFFER_SIZE> buffer;

    Descriptor fd_;
    Clock::time_point begin_;
    std::string head_;
    std::string tail_; // the last bytes of the body
    std::size_t bodyBytes_ = 0;
    std::size_t length_ = 0;
    bool isInBody_ = false;
    bool isChunked_ = false;
};

struct Figures {
    std::vector<long long> microseconds;
    int errors = 0;
};

Figures measure(std::vector<Exchange>& exchanges, const std::string& request, std::chrono::seconds duration) {
    std::vector<pollfd> polled;
    for (Exchange& exchange : exchanges) {
        exchange.send(request);
        polled.push_back({exchange.descriptor(), POLLIN, 0});
    }
    Figures figures;
    const Clock::time_point end = Clock::now() + duration;
    while (Clock::now() < end && poll(polled.data(), polled.size(), WAIT_MS) > 0)
        for (std::size_t i = 0; i < polled.size(); ++i)
            if (polled[i].revents != 0 && exchanges[i].receive()) {
                const auto time = Clock::now() - exchanges[i].begin();
                figures.microseconds.push_back(
                    std::chrono::duration_cast<std::chrono::microseconds>(time).count());
                figures.errors += exchanges[i].isGood() ? 0 : 1;
                exchanges[i].send(request);
            }
    return figures;
}

void run(int count, char** arguments) {
    if (count < 5)
        throw std::runtime_error(USAGE);
    const std::string request = makeRequest(arguments[2], count > 5 ? arguments[5] : nullptr);
    const int seconds = std::atoi(arguments[3]);
    const int connections = std::atoi(arguments[4]);
    std::vector<Exchange> exchanges;
    exchanges.reserve(static_cast<std::size_t>(connections));
    for (int i = 0; i < connections; ++i)
        exchanges.emplace_back(std::atoi(arguments[1]));
    Figures figures = measure(exchanges, request, std::chrono::seconds(seconds));
    std::vector<long long>& times = figures.microseconds;
    if (times.empty())
        throw std::runtime_error("no answer");
    std::sort(times.begin(), times.end());
    std::printf("%.2f %lld %lld %i\n", static_cast<double>(times.size()) / seconds, times[times.size() / 2],
                times[times.size() * 99 / 100], figures.errors);
}

} // namespace

int main(int argc, char** argv) {
    try {
        run(argc, argv);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "closedloop: %s\n", error.what());
        return 1;
    }
    return 0;
}
