#pragma once

#include <chrono>
#include <cstddef>
#include <deque>
#include <map>
#include <vector>

class Request;

/// The memory for request bodies. A request asks for the announced length of its body before it reads the
/// body. A body that does not fit beside those in progress waits for its turn, in the order of asking; its
/// bytes stay in the web server. Small and large bodies have separate budgets, so that a small one never
/// waits for a large one.
///
/// A body whose client sends less than MIN_PROGRESS bytes in STALL_TIMEOUT has stalled and loses its turn.
class BodyBudget {
public:
    using Clock = std::chrono::steady_clock;

    static constexpr std::size_t SMALL_BODY = std::size_t{1} << 20;
    static constexpr std::size_t SMALL_TOTAL = std::size_t{16} << 20;
    /// Also the largest body.
    static constexpr std::size_t LARGE_TOTAL = std::size_t{96} << 20;
    static constexpr std::size_t MIN_PROGRESS = std::size_t{256} << 10;
    static constexpr std::chrono::seconds STALL_TIMEOUT{10};

    /// Returns true when the body may be read now. Otherwise the request waits until admit returns it.
    /// REQUIRES: size <= LARGE_TOTAL, and the request neither has a turn nor waits.
    bool ask(Request* request, std::size_t size, Clock::time_point now);

    /// Reports that `size` bytes have arrived. Returns false when they exceed the announced length and the
    /// excess does not fit.
    bool grow(Request* request, std::size_t size, Clock::time_point now);

    /// Reports that the body is complete: it cannot stall any more.
    void finish(Request* request);

    /// Ends the request's turn or its waiting. Does nothing if it has neither.
    void release(Request* request);

    /// Gives turns to the requests that fit now, in order, and returns them.
    std::vector<Request*> admit(Clock::time_point now);

    /// The requests whose bodies have stalled.
    std::vector<Request*> stalled(Clock::time_point now) const;

private:
    struct Turn {
        std::size_t size;     // reserved
        std::size_t arrived;  // at the last progress
        Clock::time_point at; // of the last progress
    };
    struct Waiting {
        Request* request;
        std::size_t size;
    };
    struct Pool {
        std::size_t total;
        std::size_t used = 0;
        std::deque<Waiting> queue{};

        bool fits(std::size_t size) const { return used + size <= total; }
    };

    Pool& poolOf(std::size_t size) { return size <= SMALL_BODY ? small_ : large_; }
    void begin(const Waiting& body, Clock::time_point now);

    Pool small_{SMALL_TOTAL};
    Pool large_{LARGE_TOTAL};
    std::map<Request*, Turn> turns_;
};
