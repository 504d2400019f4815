#pragma once

#include "apps/live/connection.h"
#include "apps/live/counters.h"
#include "apps/live/variableset.h"

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

class Changes;
class PresentValues;

/// The clients that get changes as server-sent events.
///
/// Of each client the process keeps one set of variables that the client has not got, however slow it is, and
/// no queue. When the connection takes more, the client gets the present values of that set, those that
/// changed first in front, at most some 16 KiB at a time. A message is printed once for all clients that need
/// the same. While the messages on their way hold more than Output::LIMIT, nothing is printed, and
/// clients that have not taken a message within MAX_STALL are disconnected. A message's "id" is the sequence
/// number up to which its client has everything:
///
///     id: 7443234234
///     data: {"MemPersistent.DisplayBrightness":7}
class Streams {
public:
    using Clock = std::chrono::steady_clock;

    static constexpr std::size_t MAX_STREAMS = 1000;
    static constexpr std::chrono::seconds HEARTBEAT{30}; ///< the longest time between two pieces
    static constexpr std::chrono::seconds MAX_STALL{5};

    struct Wish {
        VariableSet variables;
        std::chrono::milliseconds period{0};  ///< shortest time between two messages
        std::optional<std::uint64_t> since{}; ///< the client has all changes up to this sequence number
        bool wantsReset = false;              ///< the client continues, but the number is unknown here
    };

    /// The references must outlive the object.
    Streams(PresentValues& values, const Changes& changes, Counters& counters)
        : values_(values), changes_(changes), counters_(counters) {}

    bool isFull() const { return streams_.size() >= MAX_STREAMS; }
    std::size_t size() const { return streams_.size(); }

    /// Answers with the stream's header and sends what the client has not got. REQUIRES: !isFull().
    void open(Connection& connection, const Wish& wish);

    /// Forgets the connection, if it is one of a stream.
    void remove(Connection& connection) { streams_.erase(&connection); }

    /// Notes that the variable has changed.
    void changed(VariableNumber number) { changed_.set(number); }

    /// Notes that a connection takes more.
    void askForTurn() { isAsked_ = true; }

    /// Sends what is due. To be called after every turn of the event loop.
    void turn(Clock::time_point now);

    /// When turn has something to do, without a change or a call of askForTurn.
    Clock::time_point due() const { return due_; }

private:
    struct Stream {
        VariableSet wanted;
        VariableSet pending; // what the client has not got
        std::chrono::milliseconds period{0};
        bool isReset = false; // the next message says so
        Clock::time_point next{};
        Clock::time_point heartbeat{};
        Clock::time_point sent{}; // the last message
    };
    struct Message {
        VariableSet pending;
        bool isReset;
        unsigned short requestId;
        VariableSet contents; // a part of pending
        SharedOutput output;
    };

    void closeStalled(Clock::time_point now);
    void serve(Connection& connection, Stream& stream, Clock::time_point now);
    void sendChanges(Connection& connection, Stream& stream, Clock::time_point now);
    const Message& message(const Connection& connection, const Stream& stream);
    std::vector<VariableNumber> oldestFirst(const VariableSet& variables) const;

    PresentValues& values_;
    const Changes& changes_;
    Counters& counters_;
    std::map<Connection*, Stream> streams_;
    std::vector<Message> messages_; // of this turn
    VariableSet changed_;           // since the last turn
    bool isAsked_ = false;
    Clock::time_point due_ = Clock::time_point::max();
};
