#include "apps/common/event/serverconnection.h"

#include "apps/common/event/brokersocket.h"
#include "tests/unit/diagnostics/logcapture.h"

#include <array>
#include <chrono>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <gmock/gmock.h>
#include <optional>
#include <sched.h>
#include <semaphore.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

namespace {

using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;

struct Recorder : ServerConnection::EventHandler {
    void handleEvent(const Notify& event) override {
        ids.push_back(event.id);
        action();
    }
    std::vector<std::uint32_t> ids;
    std::function<void()> action = [] {};
};

// A connection with the test as broker at its other end.
class ServerConnectionTest : public testing::Test {
protected:
    ServerConnectionTest() {
        int ends[2];
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
        broker_ = ends[0];
        connection_.emplace(poll_, ends[1]);
        connection_->handler = &recorder_;
    }
    ~ServerConnectionTest() override { hangUp(); }

    void hangUp() {
        if (broker_ >= 0)
            close(std::exchange(broker_, -1));
    }
    void brokerSends(std::string_view bytes) const {
        EXPECT_EQ(write(broker_, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    }
    bool brokerSeesTheEnd() const {
        char byte;
        return recv(broker_, &byte, 1, MSG_DONTWAIT) == 0;
    }
    std::string postError() {
        return textThrownBy([&] { connection_->postEvent({7, 0, 0}); });
    }

    LogCapture log_;
    EventPoll poll_;
    Recorder recorder_;
    int broker_ = -1;
    std::optional<ServerConnection> connection_;
};

const std::string SAMPLE("\x07\0\0\0\1\0\0\0\2\0\0\0"
                         "\x08\0\0\0\3\0\0\0\4\0\0\0"
                         "\xff\xff\xff\xff\5\0",
                         30);

TEST_F(ServerConnectionTest, OneReadTakesAtMost256Records) {
    brokerSends(std::string(300 * 12, '\1'));
    poll_.wait(1000, true);
    EXPECT_EQ(recorder_.ids.size(), 256U);
    poll_.wait(1000, true);
    EXPECT_EQ(recorder_.ids.size(), 300U);
}

// The broker of a virtual device, which this program is linked with.
class VirtualBroker {
public:
    VirtualBroker() {
        setenv("VIRTUAL_DEVICE_ROOT", folder_, 1);
        setenv("VIRTUAL_DEVICE_NAME", folder_ + 5, 1);
        std::filesystem::create_directories(std::string(folder_) + "/var/volatile");
        sockaddr_un address{AF_UNIX, "/var/volatile/message-broker.socket"};
        EXPECT_EQ(bind(socket_.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
        EXPECT_EQ(listen(socket_.get(), 1), 0);
        sem_close(sem_open(BROKER_SEMAPHORE, O_CREAT, 0600, 1));
    }
    ~VirtualBroker() {
        sem_unlink(BROKER_SEMAPHORE);
        std::filesystem::remove_all(folder_);
        unsetenv("VIRTUAL_DEVICE_ROOT");
        unsetenv("VIRTUAL_DEVICE_NAME");
    }
    Descriptor accept() const { return Descriptor(::accept(socket_.get(), nullptr, nullptr)); }

private:
    char folder_[19] = "/tmp/broker-XXXXXX";
    const bool isMade_ = mkdtemp(folder_) != nullptr;
    const Descriptor socket_{socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)};
};

TEST_F(ServerConnectionTest, EventsWithoutHandlerAreLogged) {
    const VirtualBroker broker;
    const ServerConnection connection(poll_);
    const Descriptor peer = broker.accept();
    EXPECT_EQ(connection.handler, nullptr);
    const Notify records[] = {{3, 9, 9}, {6, 0, 0}, {EVENT_COUNT, 0, 0}, {0xffffffffU, 0, 0}};
    EXPECT_EQ(write(peer.get(), records, sizeof records), std::ssize(records) * 12);
    connection_->handler = nullptr; // this one took over a socket: it drops
    brokerSends(SAMPLE);
    while (poll_.wait(0, true) == EventPoll::Dispatched) {
    }
    auto messages = log_.messages();
    std::erase_if(messages, [](const std::string& message) { return message.starts_with("Debug"); });
    const std::string known = " is beyond the " + std::to_string(EVENT_COUNT) + " known events";
    EXPECT_THAT(messages, ElementsAre("LogLight Waiting for server", "LogLight Connected after 0 attempts",
                                      "Warn Unhandled event: SubscribeAll",
                                      "Warn Unhandled event: VarAppLogLevelChanged",
                                      "Warn Event id " + std::to_string(EVENT_COUNT) + known,
                                      "Warn Unhandled event: Invalid", "Warn Event id 4294967295" + known,
                                      "Warn Unhandled event: Invalid"));
}

TEST_F(ServerConnectionTest, ExceptionOfTheHandlerIsLogged) {
    recorder_.action = [] { throw std::runtime_error("cannot take it"); };
    brokerSends(SAMPLE);
    EXPECT_EQ(poll_.wait(1000, true), 3);
    EXPECT_THAT(recorder_.ids, ElementsAre(7, 8));
    EXPECT_EQ(log_.messages().back(), "Error cannot take it");
}

TEST_F(ServerConnectionTest, EndOfFileClosesTheConnection) {
    brokerSends("12345");
    shutdown(broker_, SHUT_WR);
    EXPECT_EQ(poll_.wait(1000, true), 3);
    EXPECT_EQ(poll_.wait(0, true), 2);
    EXPECT_TRUE(brokerSeesTheEnd());
    EXPECT_THAT(recorder_.ids, IsEmpty());
}

TEST_F(ServerConnectionTest, PostingFailsAfterHangUp) {
    hangUp();
    EXPECT_THAT(postError(), EndsWith(" Could not send message to server"));
    EXPECT_EQ(poll_.wait(1000, true), 3);
    EXPECT_EQ(poll_.wait(0, true), 2);
    EXPECT_THAT(postError(), EndsWith(" Could not send message to server"));
    connection_->event(EventPoll::Callback::Readable);
    const auto post = [] { postEvent({7, 0, 0}); };
    EXPECT_THAT(textThrownBy(post), EndsWith(" Trying to post event without server connection"));
}

TEST_F(ServerConnectionTest, ReadErrorClosesTheConnection) {
    connection_->postEvent({7, 0, 0});
    hangUp(); // with unread data: a reset
    connection_->event(EventPoll::Callback::Readable);
    EXPECT_THAT(log_.messages(), testing::Contains("Error Read error"));
    EXPECT_EQ(poll_.wait(0, true), 2);
}

using Clock = std::chrono::steady_clock;

// Posts until it fails and returns the time that the last post took.
Clock::duration fillQueue(ServerConnection& connection) {
    for (int posts = 0; posts < 1000000; ++posts) {
        const auto start = Clock::now();
        try {
            connection.postEvent({7, 0, 0});
        } catch (const std::runtime_error&) {
            return Clock::now() - start;
        }
    }
    return {};
}

constexpr std::chrono::milliseconds LIMIT{500};

TEST_F(ServerConnectionTest, PostWaitsOnceForABrokerThatDoesNotRead) {
    poll_.setTimer(5); // no signal ends the wait
    EXPECT_GE(fillQueue(*connection_), LIMIT);
    poll_.setTimer(-1);
    const auto start = Clock::now();
    for (int posts = 0; posts < 200; ++posts)
        EXPECT_THAT(postError(), EndsWith(" Could not send message to server"));
    EXPECT_LT(Clock::now() - start, 100 * LIMIT);
    std::string bytes(1 << 20, '\0');
    EXPECT_GT(recv(broker_, bytes.data(), bytes.size(), 0), 12);
    EXPECT_EQ(postError(), "nothing thrown");
    EXPECT_GE(fillQueue(*connection_), LIMIT);
    hangUp();
    EXPECT_EQ(poll_.wait(0, true), 1); // the ticks
}

// Termination is the process's, so this runs in a process of its own.
TEST(ServerConnectionDeathTest, TerminationEndsTheWaitForTheBroker) {
    EXPECT_EXIT(
        {
            EventPoll poll;
            const LogCapture log;
            raise(SIGTERM);
            Clock::duration waited{};
            for (int i = 0; i < 200; ++i) {
                int ends[2];
                socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends);
                waited += fillQueue(*new ServerConnection(poll, ends[1]));
            }
            std::_Exit(waited < 100 * LIMIT ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}

TEST_F(ServerConnectionTest, KnowsWhenTheBrokerHasReadTheSubscription) {
    connection_->subscribeAll();
    EXPECT_FALSE(connection_->isRead());
    std::array<char, 64> bytes{};
    EXPECT_EQ(recv(broker_, bytes.data(), bytes.size(), 0), 12);
    EXPECT_TRUE(connection_->isRead());
    connection_->close();
    EXPECT_FALSE(connection_->isRead());
}

TEST_F(ServerConnectionTest, ClosingReadsTheRestSoThatTheBrokerSeesNoReset) {
    brokerSends(std::string(5000, 'x'));
    connection_.reset();
    EXPECT_TRUE(brokerSeesTheEnd());
}

TEST_F(ServerConnectionTest, ReadIsRetriedAfterSignals) {
    const pid_t broker = fork();
    if (broker == 0) {
        for (int i = 0; i < 1000; ++i) {
            kill(getppid(), SIGALRM);
            sched_yield();
        }
        _exit(write(broker_, SAMPLE.data(), 24) == 24 ? 0 : 1);
    }
    connection_->event(EventPoll::Callback::Readable);
    waitpid(broker, nullptr, 0);
    EXPECT_THAT(recorder_.ids, ElementsAre(7, 8));
    hangUp();
    EXPECT_EQ(poll_.wait(1000, true), 1); // the signals had come
}

} // namespace
