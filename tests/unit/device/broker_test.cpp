#include "device/broker/broker.h"

#include <cstdlib>
#include <gmock/gmock.h>
#include <memory>
#include <optional>
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

constexpr Notify SUBSCRIBE{EventSubscribe, 0, 0};
constexpr Notify UNSUBSCRIBE{EventUnsubscribe, 0, 0};
constexpr Notify SUBSCRIBE_ALL{EventSubscribeAll, 0, 0};
constexpr Notify UNSUBSCRIBE_ALL{EventUnsubscribeAll, 0, 0};

// A process of the device, as the broker sees it.
class Peer {
public:
    explicit Peer(const std::string& path) : socket_(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path.copy(address.sun_path, sizeof address.sun_path - 1);
        EXPECT_EQ(connect(socket_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    }

    void send(const void* bytes, std::size_t size) {
        EXPECT_EQ(::send(socket_.get(), bytes, size, MSG_NOSIGNAL), static_cast<ssize_t>(size));
    }

    // All that has arrived since the last call.
    Events received() {
        Events events;
        Notify event;
        while (recv(socket_.get(), &event, sizeof event, MSG_DONTWAIT) == sizeof event)
            events.push_back(event);
        return events;
    }

private:
    Descriptor socket_;
};

class BrokerTest : public testing::Test {
protected:
    ~BrokerTest() override {
        broker_.reset();
        EXPECT_EQ(rmdir(folder_), 0) << "the socket is left";
    }

    std::unique_ptr<Peer> connect(const Events& firstWords = {}) {
        auto peer = std::make_unique<Peer>(path_);
        broker_->runOnce(0);
        send(*peer, firstWords);
        return peer;
    }

    void send(Peer& peer, const Events& events) {
        peer.send(events.data(), events.size() * sizeof(Notify));
        broker_->runOnce(0);
    }

    char folder_[20] = "/tmp/broker-XXXXXX";
    const std::string path_ = std::string(mkdtemp(folder_)) + "/socket";
    std::optional<Broker> broker_{path_};
};

TEST_F(BrokerTest, EventsGoToSubscribersAndToTheirSender) {
    const auto sender = connect({SUBSCRIBE_ALL});
    const auto one = connect({SUBSCRIBE, {7, 0, 0}});
    const auto none = connect();
    const Events events = {{7, 1, 2}, {8, 0, 0}, {4000000000, 5, 6}, {0, 0, 0}};
    send(*sender, events);
    EXPECT_EQ(sender->received(), events);
    EXPECT_THAT(one->received(), ElementsAre(Notify{7, 1, 2}));
    EXPECT_THAT(none->received(), IsEmpty());
}

TEST_F(BrokerTest, ASubscriberGetsWhatIsPostedAfterItsSubscription) {
    const auto sender = connect();
    Peer subscriber(path_);
    subscriber.send(&SUBSCRIBE_ALL, sizeof(Notify));
    send(*sender, {{7, 1, 2}}); // the broker has not run since
    EXPECT_THAT(subscriber.received(), ElementsAre(Notify{7, 1, 2}));
}

TEST_F(BrokerTest, LastSubscriptionOfAnEventCounts) {
    const auto peer = connect();
    const std::pair<Events, std::vector<std::uint32_t>> cases[] = {
        {{SUBSCRIBE, {7, 0, 0}, SUBSCRIBE, {8, 0, 0}, UNSUBSCRIBE, {7, 0, 0}}, {8}},
        {{SUBSCRIBE_ALL, UNSUBSCRIBE, {8, 0, 0}}, {7}},
        {{UNSUBSCRIBE_ALL}, {}},
        {{SUBSCRIBE, {8, 0, 0}}, {8}},
        {{SUBSCRIBE, SUBSCRIBE_ALL, UNSUBSCRIBE, {8, 0, 0}}, {}}, // the record after SUBSCRIBE is an id
    };
    for (const auto& [control, expected] : cases) {
        send(*peer, control);
        send(*peer, {{7, 0, 0}, {8, 0, 0}});
        std::vector<std::uint32_t> ids;
        for (const Notify& event : peer->received())
            ids.push_back(event.id);
        EXPECT_EQ(ids, expected);
    }
}

TEST_F(BrokerTest, RecordsArriveInAnyPieces) {
    const auto listener = connect({SUBSCRIBE_ALL});
    const Events words = {SUBSCRIBE, {7, 0, 0}, {7, 1, 2}, {7, 3, 4}};
    const auto* const bytes = reinterpret_cast<const char*>(words.data());
    const std::size_t size = words.size() * sizeof(Notify);
    for (std::size_t split = 1; split < size; ++split) {
        const auto peer = connect();
        peer->send(bytes, split);
        broker_->runOnce(0);
        peer->send(bytes + split, size - split);
        broker_->runOnce(0);
        EXPECT_THAT(peer->received(), ElementsAre(Notify{7, 1, 2}, Notify{7, 3, 4})) << "split at " << split;
        listener->received();
        connect()->send(bytes + 2 * sizeof(Notify), split % 24); // and disconnects
        broker_->runOnce(0);
        EXPECT_EQ(listener->received().size(), split % 24 / sizeof(Notify));
    }
    broker_->runOnce(0);
    EXPECT_EQ(broker_->clientCount(), 1U);
}

} // namespace
