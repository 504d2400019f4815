#include "apps/common/event/eventpoll.h"

#include "tests/unit/diagnostics/logcapture.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sstream>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

namespace {

using testing::ElementsAre;
using testing::EndsWith;

// Notes its events; `action` runs inside of each.
struct Recorder : EventPoll::Callback {
    void event(EventType type) override {
        types.push_back(type);
        action();
    }
    std::vector<int> types;
    std::function<void()> action = [] {};
};

class EventPollTest : public testing::Test {
protected:
    EventPollTest() { EXPECT_EQ(pipe2(pipe_, O_CLOEXEC), 0); }
    ~EventPollTest() override {
        close(pipe_[0]);
        close(pipe_[1]);
    }
    void fill() const { EXPECT_EQ(write(pipe_[1], "x", 1), 1); }

    LogCapture log_;
    EventPoll poll_;
    Recorder recorder_;
    int pipe_[2];
};

TEST_F(EventPollTest, ReadableIsReportedAsLongAsItIsAndHangUpGoesBeforeDataThatIsStillThere) {
    poll_.add(pipe_[0], &recorder_, EPOLLIN);
    EXPECT_EQ(poll_.wait(0, true), 2);
    fill();
    EXPECT_EQ(poll_.wait(1000, true), 3);
    EXPECT_EQ(poll_.wait(1000, true), 3);
    close(std::exchange(pipe_[1], -1));
    EXPECT_EQ(poll_.wait(1000, true), 3);
    EXPECT_THAT(recorder_.types, ElementsAre(1, 1, 2));
    poll_.remove(pipe_[0]);
    EXPECT_EQ(poll_.wait(0, true), 2);
}

// The two ends of a TCP connection: other kinds know no urgent data.
std::pair<int, int> tcpConnection() {
    const int listener = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    socklen_t size = sizeof(address);
    EXPECT_EQ(listen(listener, 1), 0); // on a port of the kernel's choice
    EXPECT_EQ(getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size), 0);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const int client = socket(AF_INET, SOCK_STREAM, 0);
    EXPECT_EQ(connect(client, reinterpret_cast<const sockaddr*>(&address), size), 0);
    const int server = accept(listener, nullptr, nullptr);
    close(listener);
    return {client, server};
}

TEST_F(EventPollTest, UrgentDataGoesBeforeOrdinary) {
    const auto [client, server] = tcpConnection();
    EXPECT_EQ(send(client, "x", 1, 0), 1);
    EXPECT_EQ(send(client, "!", 1, MSG_OOB), 1);
    poll_.add(server, &recorder_, EPOLLIN | EPOLLPRI);
    for (int waits = 0; waits < 1000 && (recorder_.types.empty() || recorder_.types.back() != 0); ++waits)
        EXPECT_EQ(poll_.wait(10000, true), 3);
    EXPECT_EQ(recorder_.types.back(), 0);
    char urgent = 0;
    EXPECT_EQ(recv(server, &urgent, 1, MSG_OOB), 1);
    EXPECT_EQ(urgent, '!');
    EXPECT_EQ(poll_.wait(10000, true), 3);
    EXPECT_EQ(recorder_.types.back(), 1); // the ordinary byte is still there
    close(client);
    close(server);
}

TEST_F(EventPollTest, BatchOfEightIsDeliveredWholeAlthoughItsFirstCallbackRemovesAll) {
    fill();
    std::vector<int> all;
    recorder_.action = [&] {
        for (const int fd : std::exchange(all, {})) {
            poll_.remove(fd);
            close(fd);
        }
    };
    for (int i = 0; i < 9; ++i)
        poll_.add(all.emplace_back(dup(pipe_[0])), &recorder_, EPOLLIN);
    EXPECT_EQ(poll_.wait(1000, true), 3);
    EXPECT_EQ(recorder_.types.size(), 8U);
    EXPECT_EQ(poll_.wait(0, true), 2);
}

TEST_F(EventPollTest, EachStepOfAClientIsLogged) {
    std::ostringstream callback;
    callback << &recorder_;
    const std::string fd = std::to_string(pipe_[0]);
    poll_.add(pipe_[0], &recorder_, EPOLLIN);
    fill();
    poll_.wait(1000, true);
    poll_.remove(pipe_[0]);
    EXPECT_THAT(log_.messages(),
                ElementsAre("DebugMost Add new client " + fd + "/" + callback.str(),
                            "DebugAll Call    client " + callback.str() + " for events 00000001",
                            "DebugMost Remove  client " + fd));
}

TEST_F(EventPollTest, ExceptionOfACallbackLeavesTheWaitAndTheLoopWorksOn) {
    poll_.add(pipe_[0], &recorder_, EPOLLIN);
    fill();
    recorder_.action = [] { throw std::runtime_error("from the callback"); };
    EXPECT_EQ(textThrownBy([&] { poll_.wait(1000, true); }), "from the callback");
    recorder_.action = [] {};
    EXPECT_EQ(poll_.wait(1000, true), 3);
}

TEST_F(EventPollTest, WhatCannotBeDoneIsToldAndAClosedPollRefusesAllButRemoving) {
    const auto add = [&] { poll_.add(pipe_[0], nullptr, EPOLLIN); };
    add();
    EXPECT_THAT(textThrownBy(add), EndsWith(" epoll_ctl: File exists"));
    fill();
    EXPECT_EQ(poll_.wait(1000, true), 3);
    EXPECT_EQ(log_.messages().back(), "Warn Unhandled event: 00000001");
    poll_.remove(pipe_[0]);
    EXPECT_THAT(textThrownBy([&] { poll_.remove(pipe_[0]); }),
                EndsWith(" epoll_ctl: No such file or directory"));
    EXPECT_EQ(poll_.close(), 0);
    EXPECT_LT(poll_.close(), 0);
    EXPECT_THAT(textThrownBy(add), EndsWith(" add called on an already closed handle"));
    EXPECT_THAT(textThrownBy([&] { poll_.wait(0, true); }),
                EndsWith(" wait called on an already closed handle"));
    poll_.remove(pipe_[0]);
}

TEST_F(EventPollTest, TimerTicksAlsoWhileEventsKeepComingAndCanBeStoppedDeletedAndSetAgain) {
    for (const int end : {0, -1}) {
        poll_.setTimer(5);
        EXPECT_EQ(poll_.wait(10000, true), 1);
        EXPECT_EQ(poll_.wait(10000, true), 1);
        poll_.setTimer(end);
        EXPECT_EQ(poll_.wait(20, true), 2);
    }
    poll_.setTimer(-1);
    EXPECT_THAT(textThrownBy([&] { poll_.setTimer(-2); }), EndsWith(" timer set: Invalid argument"));
    poll_.setTimer(1500);
    EXPECT_EQ(poll_.wait(0, true), 2);
    poll_.setTimer(5);
    poll_.add(pipe_[0], &recorder_, EPOLLIN);
    fill();
    int result = 3;
    for (int waits = 0; result == 3 && waits < 1'000'000; ++waits)
        result = poll_.wait(10000, true);
    EXPECT_EQ(result, 1);
    poll_.setTimer(-1);
    poll_.wait(0, true); // a tick stays with the process until a wait with events reports it
}

int waitWhileSignalled(EventPoll& poll, int signal) {
    sigevent notification{};
    notification.sigev_notify = SIGEV_SIGNAL;
    notification.sigev_signo = signal;
    timer_t timer;
    timer_create(CLOCK_MONOTONIC, &notification, &timer);
    const itimerspec often{{0, 1000000}, {0, 1000000}};
    timer_settime(timer, 0, &often, nullptr);
    const int result = poll.wait(10000, true);
    timer_delete(timer);
    return result;
}

// Termination stays with the process: this runs in one of its own.
TEST(EventPollDeathTest, SignalsInterruptAWaitAreLoggedOnceInAscendingOrderAndTerminationStays) {
    EXPECT_EXIT(
        {
            EventPoll poll;
            const LogCapture log;
            std::string told = std::to_string(waitWhileSignalled(poll, SIGTERM));
            raise(SIGTERM);
            raise(SIGINT);
            for (const bool isIgnored : {false, true, false})
                told += std::to_string(poll.wait(0, isIgnored));
            poll.close();
            told += std::to_string(poll.wait(0, false));
            for (const std::string& message : log.messages())
                told += ";" + message;
            std::fprintf(stderr, "%s", told.c_str());
            std::_Exit(0);
        },
        testing::ExitedWithCode(0), // on a slow machine one has come before the wait
        "^04244;(LogLight SIG 15: Terminated;)?LogLight SIG 2: Interrupt;LogLight SIG 15: Terminated$");
}

} // namespace
