#include "apps/live/streams.h"

#include "apps/live/changes.h"
#include "apps/live/presentvalues.h"

#include <algorithm>
#include <utility>

namespace {

constexpr std::size_t MESSAGE_SIZE = 16384;
constexpr std::chrono::milliseconds RETRY{100}; // when outputs hold too much memory

// "retry": a client connects again after a second.
constexpr char HEAD[] = "Status: 200 OK\r\n"
                        "Content-Type: text/event-stream\r\n"
                        "Cache-Control: no-store\r\n"
                        "\r\n"
                        "retry: 1000\n\n";
constexpr char HEARTBEAT_LINE[] = ":\n\n";

// When a client that gets nothing from now on needs a heartbeat: a multiple of some seconds, so that many
// quiet clients need few turns of the loop.
Streams::Clock::time_point nextHeartbeat(Streams::Clock::time_point now) {
    using Grid = std::chrono::duration<Streams::Clock::rep, std::ratio<5>>;
    return std::chrono::floor<Grid>(now + Streams::HEARTBEAT);
}

} // namespace

void Streams::open(Connection& connection, const Wish& wish) {
    Stream& stream = streams_[&connection];
    stream.wanted = wish.variables;
    stream.period = wish.period;
    stream.isReset = wish.wantsReset;
    stream.pending = wish.since ? changes_.since(*wish.since, wish.variables) : wish.variables;
    stream.sent = Clock::now();
    stream.heartbeat = nextHeartbeat(stream.sent);
    connection.beginStream(HEAD);
    askForTurn();
}

void Streams::turn(Clock::time_point now) {
    if (changed_.none() && !isAsked_ && now < due_)
        return;
    isAsked_ = false;
    due_ = Clock::time_point::max();
    if (Output::held() > Output::LIMIT)
        closeStalled(now);
    for (auto& [connection, stream] : streams_) {
        counters_.late += (stream.pending & changed_ & stream.wanted).count();
        stream.pending |= changed_ & stream.wanted;
        serve(*connection, stream, now);
    }
    changed_.reset();
    messages_.clear();
}

// Such a client connects again and misses nothing, but all others would wait for it. Closing frees its
// output.
void Streams::closeStalled(Clock::time_point now) {
    for (auto& [connection, stream] : streams_)
        if (!connection->isReady() && now - stream.sent > MAX_STALL) {
            connection->close();
            ++counters_.disconnected;
        }
}

// A connection that takes nothing now asks for a turn when it does.
void Streams::serve(Connection& connection, Stream& stream, Clock::time_point now) {
    while (connection.isReady() && stream.pending.any() && now >= stream.next) {
        if (Output::held() > Output::LIMIT) {
            due_ = std::min(due_, now + RETRY);
            return;
        }
        sendChanges(connection, stream, now);
    }
    if (!connection.isReady())
        return;
    if (now >= stream.heartbeat) {
        connection.send(std::make_shared<const Output>(connection.frame(HEARTBEAT_LINE)));
        stream.heartbeat = nextHeartbeat(now);
        ++counters_.heartbeats;
    }
    due_ = std::min(due_, stream.pending.any() ? stream.next : stream.heartbeat);
}

void Streams::sendChanges(Connection& connection, Stream& stream, Clock::time_point now) {
    const Message& next = message(connection, stream);
    stream.pending &= ~next.contents;
    stream.isReset = false;
    stream.heartbeat = nextHeartbeat(now);
    stream.sent = now;
    if (stream.pending.none()) // the pieces of a long message follow each other at once
        stream.next = now + stream.period;
    ++counters_.messages;
    connection.send(next.output);
}

const Streams::Message& Streams::message(const Connection& connection, const Stream& stream) {
    for (const Message& printed : messages_)
        if (printed.pending == stream.pending && printed.isReset == stream.isReset &&
            printed.requestId == connection.requestId())
            return printed;
    VariableSet contents;
    std::string data = "{";
    std::uint64_t sequence = 0;
    for (const VariableNumber number : oldestFirst(stream.pending)) {
        values_.append(data, number);
        contents.set(number);
        sequence = changes_.of(number);
        if (data.size() > MESSAGE_SIZE)
            break;
    }
    const std::string text = std::string(stream.isReset ? "event: reset\n" : "") +
                             "id: " + std::to_string(sequence) + "\ndata: " + data + "}\n\n";
    ++counters_.printed;
    messages_.push_back({stream.pending, stream.isReset, connection.requestId(), contents,
                         std::make_shared<const Output>(connection.frame(text))});
    return messages_.back();
}

std::vector<VariableNumber> Streams::oldestFirst(const VariableSet& variables) const {
    std::vector<VariableNumber> numbers;
    for (VariableNumber number = 0; number < EVENT_COUNT; ++number)
        if (variables[number])
            numbers.push_back(number);
    std::sort(numbers.begin(), numbers.end(), [this](VariableNumber left, VariableNumber right) {
        return changes_.of(left) < changes_.of(right);
    });
    return numbers;
}
