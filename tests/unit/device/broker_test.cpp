#include "device/broker/broker.h"

#include <cstdlib>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

bool operator==(const Notify& left, const Notify& right) {
    return left.id == right.id && left.arg1 == right.arg1 && left.arg2 == right.arg2;
}

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Events = std::vector<Notify>;

constexpr Notify SUBSCRIBE{EVENT_SUBSCRIBE, 0, 0};
constexpr Notify UNSUBSCRIBE{EVENT_UNSUBSCRIBE, 0, 0};
constexpr Notify SUBSCRIBE_ALL{EVENT_SUBSCRIBE_ALL, 0, 0};
constexpr Notify UNSUBSCRIBE_ALL{EVENT_UNSUBSCRIBE_ALL, 0, 0};

/// A process of the device, as the broker sees it.
class Peer {
public:
    explicit Peer(const std::string& path) : fd_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path.copy(address.sun_path, sizeof address.sun_path - 1);
        EXPECT_EQ(connect(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    }
    ~Peer() { close(fd_); }
    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;

    void send(const Events& events) { send(events.data(), events.size() * sizeof(Notify)); }

    void send(const void* bytes, std::size_t size) {
        EXPECT_EQ(::send(fd_, bytes, size, MSG_NOSIGNAL), static_cast<ssize_t>(size));
    }

    /// All that has arrived since the last call.
    Events received() {
        Events events;
        Notify event;
        while (recv(fd_, &event, sizeof event, MSG_DONTWAIT) == sizeof event) {
            events.push_back(event);
        }
        return events;
    }

    bool isDropped() {
        char byte;
        return recv(fd_, &byte, 1, MSG_DONTWAIT | MSG_PEEK) == 0;
    }

private:
    int fd_;
};

/// A folder for the socket; whether nothing is left in it shows when it goes.
class Folder {
public:
    ~Folder() { EXPECT_EQ(rmdir(name_), 0); }

    std::string socket() const { return std::string(name_) + "/socket"; }

private:
    char name_[20] = "/tmp/broker-XXXXXX";
    const bool isMade_ = mkdtemp(name_) != nullptr;
};

class BrokerTest : public testing::Test {
protected:
    std::unique_ptr<Peer> connect() {
        auto peer = std::make_unique<Peer>(path_);
        broker_.turn(0);
        return peer;
    }

    std::unique_ptr<Peer> connect(const Events& firstWords) {
        auto peer = connect();
        peer->send(firstWords);
        broker_.turn(0);
        return peer;
    }

    Folder folder_;
    const std::string path_ = folder_.socket();
    Broker broker_{path_};
};

TEST_F(BrokerTest, EventsGoToWhoSubscribedAndToTheSenderIfItDid) {
    const auto sender = connect({SUBSCRIBE_ALL});
    const auto one = connect({SUBSCRIBE, {7, 0, 0}});
    const auto none = connect();
    sender->send({{7, 1, 2}, {8, 0, 0}, {4000000000, 5, 6}, {0, 0, 0}});
    broker_.turn(0);
    EXPECT_THAT(sender->received(),
                ElementsAre(Notify{7, 1, 2}, Notify{8, 0, 0}, Notify{4000000000, 5, 6}, Notify{0, 0, 0}));
    EXPECT_THAT(one->received(), ElementsAre(Notify{7, 1, 2}));
    EXPECT_THAT(none->received(), IsEmpty());
}

TEST_F(BrokerTest, TheLastWordAboutAnEventHolds) {
    const auto peer = connect({SUBSCRIBE, {7, 0, 0}, SUBSCRIBE, {8, 0, 0}, UNSUBSCRIBE, {7, 0, 0}});
    peer->send({{7, 0, 0}, {8, 0, 0}});
    broker_.turn(0);
    EXPECT_THAT(peer->received(), ElementsAre(Notify{8, 0, 0}));
    peer->send({SUBSCRIBE_ALL, UNSUBSCRIBE, {8, 0, 0}, {7, 0, 0}, {8, 0, 0}});
    broker_.turn(0);
    EXPECT_THAT(peer->received(), ElementsAre(Notify{7, 0, 0}));
    peer->send({SUBSCRIBE, {8, 0, 0}, {8, 0, 0}, UNSUBSCRIBE_ALL, {7, 0, 0}, {8, 0, 0}});
    broker_.turn(0);
    EXPECT_THAT(peer->received(), ElementsAre(Notify{8, 0, 0}));
}

TEST_F(BrokerTest, TheRecordBehindASubscriptionIsAnIdWhateverItSays) {
    const auto peer = connect({SUBSCRIBE, SUBSCRIBE_ALL});
    peer->send({{7, 0, 0}});
    broker_.turn(0);
    EXPECT_THAT(peer->received(), IsEmpty());
}

TEST_F(BrokerTest, RecordsMayArriveInAnyPieces) {
    const Events words = {SUBSCRIBE, {7, 0, 0}, {7, 1, 2}, {7, 3, 4}};
    const auto* const bytes = reinterpret_cast<const char*>(words.data());
    const std::size_t size = words.size() * sizeof(Notify);
    for (std::size_t split = 1; split < size; ++split) {
        const auto peer = connect();
        peer->send(bytes, split);
        broker_.turn(0);
        peer->send(bytes + split, size - split);
        broker_.turn(0);
        EXPECT_THAT(peer->received(), ElementsAre(Notify{7, 1, 2}, Notify{7, 3, 4})) << "split at " << split;
    }
}

TEST_F(BrokerTest, AClientThatVanishesLeavesItsWholeRecordsAndNothingElse) {
    const auto listener = connect({SUBSCRIBE_ALL});
    for (std::size_t split = 0; split < 2 * sizeof(Notify); ++split) {
        const Events words = {{7, 1, 2}, {8, 3, 4}};
        auto peer = connect({SUBSCRIBE_ALL});
        peer->send(words.data(), split);
        peer.reset();
        broker_.turn(0);
        broker_.turn(0);
        EXPECT_EQ(broker_.clientCount(), 1U);
        EXPECT_EQ(listener->received().size(), split / sizeof(Notify));
    }
}

TEST_F(BrokerTest, AClientThatDoesNotReadIsDroppedAndTheOthersMissNothing) {
    const auto deaf = connect({SUBSCRIBE_ALL});
    const auto listener = connect({SUBSCRIBE_ALL});
    const auto sender = connect();
    std::uint32_t count = 0;
    for (; broker_.clientCount() == 3 && count < 100 * Client::QUEUE_LIMIT; ++count) {
        sender->send({{7, count, 0}});
        broker_.turn(0);
        EXPECT_THAT(listener->received(), ElementsAre(Notify{7, count, 0}));
    }
    EXPECT_EQ(broker_.clientCount(), 2U);
    EXPECT_GT(count, Client::QUEUE_LIMIT);
    deaf->received();
    EXPECT_TRUE(deaf->isDropped());
}

TEST_F(BrokerTest, AClientThatReadsLateGetsAllInOrder) {
    const auto late = connect({SUBSCRIBE_ALL});
    const auto sender = connect();
    for (std::uint32_t count = 0; count < Client::QUEUE_LIMIT; ++count) {
        sender->send({{7, count, 0}});
        broker_.turn(0);
    }
    std::uint32_t next = 0;
    while (next < Client::QUEUE_LIMIT) {
        const Events events = late->received();
        ASSERT_THAT(events, testing::Not(IsEmpty()));
        for (const Notify& event : events) {
            EXPECT_EQ(event.arg1, next++);
        }
        broker_.turn(0);
    }
}

TEST_F(BrokerTest, WithoutAFreeDescriptorNewClientsWaitAndTheOthersAreServed) {
    const auto first = connect({SUBSCRIBE_ALL});
    const auto second = std::make_unique<Peer>(path_);
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    const int nextDescriptor = dup(STDERR_FILENO);
    close(nextDescriptor);
    const rlimit none{static_cast<rlim_t>(nextDescriptor), limit.rlim_max};
    setrlimit(RLIMIT_NOFILE, &none);
    broker_.turn(0);
    EXPECT_EQ(broker_.clientCount(), 1U);
    first->send({{7, 0, 0}});
    broker_.turn(0);
    setrlimit(RLIMIT_NOFILE, &limit);
    EXPECT_THAT(first->received(), ElementsAre(Notify{7, 0, 0}));
    broker_.turn(0);
    EXPECT_EQ(broker_.clientCount(), 2U);
}

TEST_F(BrokerTest, ReadinessOfTheStopDescriptorEndsTheLoop) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    EXPECT_TRUE(broker_.turn(0, ends[0]));
    ASSERT_EQ(write(ends[1], "x", 1), 1);
    EXPECT_FALSE(broker_.turn(-1, ends[0]));
    close(ends[0]);
    close(ends[1]);
}

TEST(Broker, TakesThePlaceOfASocketThatWasLeftAndRemovesItsOwn) {
    const Folder folder;
    const Broker former(folder.socket());
    Broker broker(folder.socket());
    const Peer peer(folder.socket());
    broker.turn(0);
    EXPECT_EQ(broker.clientCount(), 1U);
    EXPECT_THROW(Broker(std::string(200, 'x')), std::runtime_error);
}

} // namespace
