#include "apps/common/event/eventpoll.h"

#include "tests/unit/diagnostics/logcapture.h"

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/epoll.h>
#include <unistd.h>
#include <utility>

namespace {

using testing::ElementsAre;
using testing::EndsWith;
using testing::StartsWith;

/// Notes its events; `action` runs inside of each.
struct Recorder : EventPoll::Callback {
    void event(EventType type) override {
        types.push_back(type);
        action();
    }
    std::vector<int> types;
    std::function<void()> action = [] {};
};

struct Pipe {
    Pipe() { EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0); }
    ~Pipe() {
        close(ends[0]);
        close(ends[1]);
    }
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;
    void fill() const { EXPECT_EQ(write(ends[1], "x", 1), 1); }
    int ends[2];
};

class EventPollTest : public testing::Test {
protected:
    /// A tick stays with the process until a wait with events reports it: the next test shall not see this
    /// one's.
    void takeTick() {
        poll_.setTimer(-1);
        poll_.wait(0, true);
    }

    LogCapture log_;
    EventPoll poll_;
    Recorder recorder_;
    Pipe pipe_;
};

TEST_F(EventPollTest, ReadableDescriptorIsReportedAsLongAsItIsReadable) {
    poll_.add(pipe_.ends[0], &recorder_, EPOLLIN);
    EXPECT_EQ(poll_.wait(0, true), 2);
    pipe_.fill();
    EXPECT_EQ(poll_.wait(1000, true), 3);
    EXPECT_EQ(poll_.wait(1000, true), 3);
    EXPECT_THAT(recorder_.types, ElementsAre(1, 1));
    poll_.remove(pipe_.ends[0]);
    EXPECT_EQ(poll_.wait(0, true), 2);
}

TEST_F(EventPollTest, HangUpGoesBeforeDataThatIsStillThere) {
    poll_.add(pipe_.ends[0], &recorder_, EPOLLIN);
    pipe_.fill();
    close(std::exchange(pipe_.ends[1], -1));
    EXPECT_EQ(poll_.wait(1000, true), 3);
    EXPECT_THAT(recorder_.types, ElementsAre(2));
}

TEST_F(EventPollTest, DescriptorWithoutCallbackIsLoggedAndPassedOver) {
    poll_.add(pipe_.ends[0], nullptr, EPOLLIN);
    pipe_.fill();
    EXPECT_EQ(poll_.wait(1000, true), 3);
    EXPECT_EQ(log_.messages().back(), "Warn Unhandled event: 00000001");
}

TEST_F(EventPollTest, BatchOfEightIsDeliveredWholeAlthoughItsFirstCallbackRemovesAll) {
    Pipe pipes[9];
    recorder_.action = [&] {
        for (const Pipe& pipe : pipes)
            poll_.remove(pipe.ends[0]);
        recorder_.action = [] {};
    };
    for (const Pipe& pipe : pipes) {
        poll_.add(pipe.ends[0], &recorder_, EPOLLIN);
        pipe.fill();
    }
    EXPECT_EQ(poll_.wait(1000, true), 3);
    EXPECT_EQ(recorder_.types.size(), 8U);
    EXPECT_EQ(poll_.wait(0, true), 2);
}

TEST_F(EventPollTest, ExceptionOfACallbackLeavesTheWaitAndTheLoopWorksOn) {
    poll_.add(pipe_.ends[0], &recorder_, EPOLLIN);
    pipe_.fill();
    recorder_.action = [] { throw std::runtime_error("from the callback"); };
    EXPECT_EQ(textThrownBy([&] { poll_.wait(1000, true); }), "from the callback");
    recorder_.action = [] {};
    EXPECT_EQ(poll_.wait(1000, true), 3);
}

TEST_F(EventPollTest, RegistrationsAreLoggedAndTheirFailuresThrow) {
    const std::string fd = std::to_string(pipe_.ends[0]);
    poll_.add(pipe_.ends[0], &recorder_, EPOLLIN);
    poll_.remove(pipe_.ends[0]);
    EXPECT_THAT(log_.messages(), ElementsAre(StartsWith("DebugMost Add new client " + fd + "/0x"),
                                             "DebugMost Remove  client " + fd));
    EXPECT_THAT(textThrownBy([&] { poll_.add(-1, &recorder_, EPOLLIN); }),
                EndsWith(" epoll_ctl: Bad file descriptor"));
    EXPECT_THAT(textThrownBy([&] { poll_.remove(pipe_.ends[0]); }),
                EndsWith(" epoll_ctl: No such file or directory"));
}

TEST_F(EventPollTest, ClosedPollRefusesAllButRemoving) {
    EXPECT_EQ(poll_.close(), 0);
    EXPECT_LT(poll_.close(), 0);
    EXPECT_THAT(textThrownBy([&] { poll_.add(pipe_.ends[0], &recorder_, EPOLLIN); }),
                EndsWith(" add called on an already closed handle"));
    EXPECT_THAT(textThrownBy([&] { poll_.wait(0, true); }),
                EndsWith(" wait called on an already closed handle"));
    poll_.remove(pipe_.ends[0]);
}

TEST_F(EventPollTest, SetIsNotInheritedByPrograms) {
    const int next = dup(0);
    close(next);
    const EventPoll another;
    EXPECT_EQ(fcntl(next, F_GETFD), FD_CLOEXEC);
}

TEST_F(EventPollTest, TimerTicksWhileNothingHappensAndWhileEventsKeepComing) {
    poll_.setTimer(5);
    EXPECT_EQ(poll_.wait(10000, true), 1);
    EXPECT_EQ(poll_.wait(10000, true), 1);
    poll_.add(pipe_.ends[0], &recorder_, EPOLLIN);
    pipe_.fill();
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    int result = 3;
    while (result == 3 && std::chrono::steady_clock::now() < end)
        result = poll_.wait(10000, true);
    EXPECT_EQ(result, 1);
    takeTick();
}

TEST_F(EventPollTest, TimerCanBeStoppedDeletedAndSetAgain) {
    poll_.setTimer(1);
    EXPECT_EQ(poll_.wait(10000, true), 1);
    poll_.setTimer(0);
    EXPECT_EQ(poll_.wait(20, true), 2);
    poll_.setTimer(1);
    EXPECT_EQ(poll_.wait(10000, true), 1);
    poll_.setTimer(-1);
    poll_.setTimer(-1);
    EXPECT_EQ(poll_.wait(20, true), 2);
    EXPECT_THAT(textThrownBy([&] { poll_.setTimer(-2); }), EndsWith(" timer set: Invalid argument"));
    poll_.setTimer(1500);
    EXPECT_EQ(poll_.wait(0, true), 2);
    poll_.add(pipe_.ends[0], &recorder_, EPOLLIN);
    pipe_.fill();
    takeTick();
}

// Termination stays with the process: these run in processes of their own.

/// Ends the process: with 0 when all of `results` are those expected, else with 1 and a message.
[[noreturn]] void exitWith(const std::vector<int>& results, const std::vector<int>& expected,
                           const std::vector<std::string>& messages) {
    for (const int result : results)
        std::fprintf(stderr, "%i ", result);
    for (const std::string& message : messages)
        std::fprintf(stderr, "%s;", message.c_str());
    std::_Exit(results == expected ? 0 : 1);
}

void signalLater(int signal) {
    sigevent notification{};
    notification.sigev_notify = SIGEV_SIGNAL;
    notification.sigev_signo = signal;
    timer_t timer;
    timer_create(CLOCK_MONOTONIC, &notification, &timer);
    itimerspec once{};
    once.it_value.tv_nsec = 30000000;
    timer_settime(timer, 0, &once, nullptr);
}

TEST(EventPollDeathTest, TerminationInterruptsTheWaitIsLoggedOnceAndStays) {
    EXPECT_EXIT(
        {
            EventPoll poll;
            const LogCapture log;
            signalLater(SIGTERM);
            const int first = poll.wait(10000, false);
            const int silent = static_cast<int>(log.messages().size());
            const int second = poll.wait(10000, false);
            const int third = poll.wait(10000, false);
            exitWith({first, silent, second, third, poll.wait(0, true)}, {0, 0, 4, 4, 2}, log.messages());
        },
        testing::ExitedWithCode(0), "LogLight SIG 15: Terminated;$");
}

TEST(EventPollDeathTest, SignalsAreLoggedInAscendingOrderAlsoWhereTerminationIsIgnored) {
    EXPECT_EXIT(
        {
            EventPoll poll;
            const LogCapture log;
            raise(SIGTERM);
            raise(SIGINT);
            const int ignored = poll.wait(0, true);
            poll.close();
            exitWith({ignored, poll.wait(0, false), EventPoll::shouldTerminate()}, {2, 4, 1}, log.messages());
        },
        testing::ExitedWithCode(0), "LogLight SIG 2: Interrupt;LogLight SIG 15: Terminated;$");
}

} // namespace
