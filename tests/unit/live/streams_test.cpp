#include "apps/live/streams.h"

#include "apps/live/changes.h"
#include "apps/live/presentvalues.h"
#include "tests/unit/introspection/fixture.h"
#include "tests/unit/service/records.h"

#include <cstring>
#include <gmock/gmock.h>

namespace {

using namespace records;
using testing::HasSubstr;

constexpr auto BRIGHTNESS = gen::EventId::VarDisplayBrightnessChanged;
constexpr auto BUTTONS = gen::EventId::VarButtonBrightnessChanged;

class StreamsTest : public MappedCatalogue, public Connection::Owner {
protected:
    // A client's end of a connection whose request has arrived.
    int client(const std::string& bytes = request("/api/v2/events")) {
        int ends[2];
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
        connections_.push_back(std::make_unique<Connection>(poll_, Descriptor(ends[1]), *this));
        clients_.emplace_back(ends[0]);
        EXPECT_EQ(::send(ends[0], bytes.data(), bytes.size(), 0), std::ssize(bytes));
        poll_.wait(0, true);
        return ends[0];
    }

    int open(const Streams::Wish& wish) {
        wish_ = wish;
        const int fd = client();
        turn();
        return fd;
    }

    void turn() {
        streams_.turn(now_);
        for (Connection* const connection : std::exchange(closed_, {})) {
            streams_.remove(*connection);
            std::erase_if(connections_, [&](const auto& owned) { return owned.get() == connection; });
        }
    }

    void change(VariableNumber number, std::int32_t value) {
        const Variable variable(number == BRIGHTNESS ? "DisplayBrightness" : "ButtonBrightness");
        std::memcpy(address(variable), &value, sizeof value);
        changes_.mark(number);
        streams_.changed(number);
    }

    // The events' text without the records' headers.
    static std::string text(int fd) { return content(received(fd)); }

    std::string message(std::uint64_t id, const std::string& data) const {
        return "id: " + std::to_string(id) + "\ndata: {" + data + "}\n\n";
    }

    void handle(Connection& connection, const HttpRequest& request) override {
        if (request.param("SCRIPT_NAME") == "/api/v2/events")
            streams_.open(connection, wish_);
        else
            connection.answer({200, "text/plain", {}, request.param("SCRIPT_NAME") + request.body});
    }
    void refuse(Connection& connection, int status) override {
        connection.answer({status, "application/problem+json", {}, "{}"});
    }
    void ready(Connection&) override { streams_.askForTurn(); }
    void closed(Connection& connection) override { closed_.push_back(&connection); }
    bool accountBody(std::ptrdiff_t bytes) override {
        bodiesSize_ += bytes <= 50000 ? bytes : 0;
        return bytes <= 50000;
    }

    EventPoll poll_;
    PresentValues values_;
    Changes changes_{values_.all(), 1};
    Counters counters_;
    Streams streams_{values_, changes_, counters_};
    Streams::Clock::time_point now_ = Streams::Clock::now();
    Streams::Wish wish_;
    std::ptrdiff_t bodiesSize_ = 0;
    std::vector<Descriptor> clients_;
    std::vector<std::unique_ptr<Connection>> connections_;
    std::vector<Connection*> closed_;
    const VariableSet both_ = VariableSet().set(BRIGHTNESS).set(BUTTONS);
};

TEST_F(StreamsTest, PresentValuesThenChangesPrintedOnce) {
    const int first = open({both_});
    EXPECT_THAT(text(first),
                HasSubstr(message(changes_.of(BUTTONS), R"("MemPersistent.DisplayBrightness":0,)"
                                                        R"("MemPersistent.ButtonBrightness":0)")));
    const int second = open({both_});
    const int third = open({VariableSet().set(BUTTONS)});
    text(second);
    text(third);
    const std::uint64_t printed = counters_.printed;
    change(BRIGHTNESS, 1);
    change(BRIGHTNESS, 2);
    turn();
    const std::string expected = message(changes_.last(), R"("MemPersistent.DisplayBrightness":2)");
    EXPECT_EQ(text(first), expected);
    EXPECT_EQ(text(second), expected);
    EXPECT_EQ(text(third), "");
    EXPECT_EQ(counters_.printed, printed + 1);
}

TEST_F(StreamsTest, AClientContinuesExactlyOrIsReset) {
    change(BRIGHTNESS, 1);
    const std::uint64_t seen = changes_.last();
    change(BUTTONS, 2);
    turn();
    const int known = open({both_, {}, seen});
    EXPECT_THAT(text(known), testing::EndsWith(
                                 "\n\n" + message(changes_.last(), R"("MemPersistent.ButtonBrightness":2)")));
    EXPECT_THAT(text(open({both_, {}, changes_.last()})), testing::EndsWith("retry: 1000\n\n"));
    EXPECT_THAT(text(open({both_, {}, {}, true})), HasSubstr("event: reset\nid: "));
    EXPECT_FALSE(changes_.isKnown(changes_.last() + 1));
    EXPECT_FALSE(Changes(values_.all(), 2).isKnown(seen)) << "a process that started later";
}

TEST_F(StreamsTest, PeriodAndHeartbeat) {
    const int fd = open({both_, std::chrono::milliseconds(50)});
    text(fd);
    change(BRIGHTNESS, 1);
    turn();
    EXPECT_EQ(text(fd), "");
    now_ = streams_.due();
    turn();
    EXPECT_THAT(text(fd), HasSubstr("Brightness\":1"));
    now_ += Streams::HEARTBEAT + std::chrono::seconds(1);
    turn();
    EXPECT_EQ(text(fd), ":\n\n");
}

TEST_F(StreamsTest, ASlowClientGetsTheLatestValuesAndNobodyWaits) {
    const int slow = open({values_.all()});
    const int fast = open({both_});
    for (int i = 1; i <= 20000; ++i) {
        change(i % 2 == 0 ? BRIGHTNESS : BUTTONS, i % 11);
        turn();
        ASSERT_THAT(text(fast), HasSubstr(":" + std::to_string(i % 11)));
    }
    EXPECT_LT(Output::held(), 200000u);
    EXPECT_GT(counters_.late, 0u);
    std::string bytes;
    for (std::string piece = received(slow); !piece.empty(); piece = received(slow)) {
        bytes += piece;
        poll_.wait(0, true);
        turn();
    }
    const std::string slowText = content(bytes);
    const auto lastOf = [&](const std::string& name) {
        return slowText.substr(slowText.rfind(name) + name.size(), 3);
    };
    EXPECT_THAT(lastOf("MemPersistent.DisplayBrightness\":"),
                testing::StartsWith(std::to_string(20000 % 11)));
    EXPECT_THAT(lastOf("MemPersistent.ButtonBrightness\":"), testing::StartsWith(std::to_string(19999 % 11)));
    EXPECT_THAT(slowText, HasSubstr("id: " + std::to_string(changes_.last()) + "\n"));
}

// No two of the clients need the same.
TEST_F(StreamsTest, StalledClientsAreDisconnectedWhenTheyHoldTooMuchMemory) {
    const int fast = open({both_});
    for (VariableNumber number = 0; number < EVENT_COUNT; ++number)
        if (values_.all()[number])
            open({VariableSet(values_.all()).reset(number)});
    ASSERT_GT(Output::held(), Output::LIMIT);
    text(fast);
    change(BRIGHTNESS, 7);
    turn();
    EXPECT_EQ(text(fast), "");
    EXPECT_EQ(counters_.disconnected, 0u);
    now_ += Streams::MAX_STALL + std::chrono::seconds(1);
    turn();
    EXPECT_THAT(text(fast), HasSubstr("Brightness\":7"));
    EXPECT_LT(Output::held(), Output::LIMIT);
    EXPECT_EQ(streams_.size() + counters_.disconnected, values_.all().count() + 1);
}

TEST_F(StreamsTest, AnyPiecesAreOneRequestAndFlippedBitsCloseAtMostTheirConnection) {
    const std::string whole = request("/x", "body", true);
    for (std::size_t cut = 0; cut <= whole.size(); ++cut) {
        const int fd = client(whole.substr(0, cut));
        ::send(fd, whole.data() + cut, whole.size() - cut, 0);
        poll_.wait(0, true);
        ASSERT_THAT(text(fd), HasSubstr("Status: 200 OK\r\nContent-Type: text/plain\r\n\r\n/xbody")) << cut;
    }
    for (std::size_t bit = 0; bit < whole.size() * 8; ++bit) {
        std::string bytes = whole;
        bytes[bit / 8] = static_cast<char>(bytes[bit / 8] ^ (1 << bit % 8));
        client(bytes + whole);
    }
    EXPECT_THAT(text(client(whole)), HasSubstr("/xbody"));
    EXPECT_THAT(text(client(request("/x", std::string(60000, 'b')))), HasSubstr("Status: 503 "));
    const std::string unfinished = whole.substr(0, whole.size() - record(5, "").size());
    const int large = client(request("/x", "", true, 1, pair("REQUEST_METHOD", "HEAD")) + unfinished);
    for (std::size_t size = 0; size <= Connection::MAX_BODY; size += 50000) {
        const std::string piece = record(5, std::string(50000, 'b'));
        ::send(large, piece.data(), piece.size(), 0);
        poll_.wait(0, true);
    }
    EXPECT_THAT(text(large), testing::ContainsRegex("Status: 413 [^{]*[{].*[}]$"));
    connections_.clear();
    EXPECT_EQ(bodiesSize_, 0);
}

} // namespace
