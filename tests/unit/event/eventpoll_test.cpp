#include "apps/common/event/eventpoll.h"

#include "tests/unit/diagnostics/logcapture.h"

#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <functional>
#include <gmock/gmock.h>
#include <sstream>
#include <sys/epoll.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <thread>
#include <unistd.h>
#include <utility>

namespace {

using testing::ElementsAre;
using testing::EndsWith;

// Records its events; `action` runs in each.
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

TEST_F(EventPollTest, HangUpTakesPrecedenceOverData) {
    poll_.add(pipe_[0], &recorder_, EPOLLIN);
    EXPECT_EQ(poll_.wait(0, true), 2);
    fill();
    EXPECT_EQ(poll_.wait(1000, true), 3);
    close(std::exchange(pipe_[1], -1));
    EXPECT_EQ(poll_.wait(1000, true), 3);
    EXPECT_THAT(recorder_.types, ElementsAre(1, 2));
    poll_.remove(pipe_[0]);
    EXPECT_EQ(poll_.wait(0, true), 2);
    std::ostringstream callback;
    callback << &recorder_;
    const std::string call = "DebugAll Call    client " + callback.str() + " for events ";
    const std::string fd = std::to_string(pipe_[0]);
    EXPECT_THAT(log_.messages(),
                ElementsAre("DebugMost Add new client " + fd + "/" + callback.str(), call + "00000001",
                            call + "00000011", "DebugMost Remove  client " + fd));
}

// A terminal in packet mode has urgent data beside the ordinary.
TEST_F(EventPollTest, UrgentDataTakesPrecedenceOverData) {
    const int terminal = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    const int packets = 1;
    EXPECT_TRUE(grantpt(terminal) == 0 && unlockpt(terminal) == 0 && ioctl(terminal, TIOCPKT, &packets) == 0);
    const int program = open(ptsname(terminal), O_RDWR | O_NOCTTY | O_CLOEXEC);
    EXPECT_EQ(tcflush(program, TCIFLUSH), 0);
    EXPECT_EQ(write(program, "x", 1), 1);
    poll_.add(terminal, &recorder_, EPOLLIN | EPOLLPRI);
    EXPECT_EQ(poll_.wait(1000, true), 3);
    char status = 0;
    EXPECT_EQ(read(terminal, &status, 1), 1);
    EXPECT_EQ(poll_.wait(1000, true), 3);
    EXPECT_THAT(recorder_.types, ElementsAre(0, 1));
    close(program);
    close(terminal);
}

TEST_F(EventPollTest, CallbackMayRemoveTheRestOfItsBatch) {
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

TEST_F(EventPollTest, ExceptionOfACallbackLeavesWait) {
    poll_.add(pipe_[0], &recorder_, EPOLLIN);
    fill();
    recorder_.action = [] { throw std::runtime_error("from the callback"); };
    EXPECT_EQ(textThrownBy([&] { poll_.wait(1000, true); }), "from the callback");
    recorder_.action = [] {};
    EXPECT_EQ(poll_.wait(1000, true), 3);
}

TEST_F(EventPollTest, FailuresAndClosedPollAreReported) {
    const auto add = [&] { poll_.add(pipe_[0], nullptr, EPOLLIN); };
    const auto remove = [&] { poll_.remove(pipe_[0]); };
    add();
    EXPECT_THAT(textThrownBy(add), EndsWith(" epoll_ctl: File exists"));
    fill();
    EXPECT_EQ(poll_.wait(1000, true), 3);
    EXPECT_EQ(log_.messages().back(), "Warn Unhandled event: 00000001");
    remove();
    EXPECT_THAT(textThrownBy(remove), EndsWith(" epoll_ctl: No such file or directory"));
    EXPECT_EQ(poll_.close(), 0);
    EXPECT_LT(poll_.close(), 0);
    EXPECT_THAT(textThrownBy(add), EndsWith(" add called on an already closed handle"));
    EXPECT_THAT(textThrownBy([&] { poll_.wait(0, true); }),
                EndsWith(" wait called on an already closed handle"));
    remove();
}

TEST_F(EventPollTest, TimerTicksUntilStoppedOrDeleted) {
    for (const int end : {0, -1, -1}) {
        poll_.setTimer(5);
        EXPECT_EQ(poll_.wait(10000, true), 1);
        EXPECT_EQ(poll_.wait(10000, true), 1);
        poll_.setTimer(end);
        EXPECT_NE(poll_.wait(20, true), 1);
    }
    EXPECT_THAT(textThrownBy([&] { poll_.setTimer(-2); }), EndsWith(" timer set: Invalid argument"));
    poll_.setTimer(90'500);
    EXPECT_EQ(poll_.wait(0, true), 2);
    poll_.setTimer(5);
    poll_.add(pipe_[0], &recorder_, EPOLLIN);
    fill();
    int result = 3;
    for (int waits = 0; result == 3 && waits < 1'000'000; ++waits)
        result = poll_.wait(10000, true);
    EXPECT_EQ(result, 1) << "although events keep coming";
    poll_.setTimer(-1);
    poll_.wait(0, true); // a wait with events resets the process's tick
}

// Termination is the process's, so this runs in a process of its own.
TEST(EventPollDeathTest, TerminationStaysAndSignalsAreLoggedOnce) {
    EXPECT_EXIT(
        {
            EventPoll poll;
            const LogCapture log;
            std::atomic<bool> isInterrupted{false};
            std::thread signals([&isInterrupted] {
                for (; !isInterrupted; usleep(1000))
                    tgkill(getpid(), getpid(), SIGTERM); // to the thread that waits
            });
            std::string results = std::to_string(poll.wait(10000, true));
            isInterrupted = true;
            signals.join();
            raise(SIGTERM);
            raise(SIGINT);
            for (const bool isIgnored : {false, true, false})
                results += std::to_string(poll.wait(0, isIgnored));
            poll.close();
            results += std::to_string(poll.wait(0, false));
            for (const std::string& message : log.messages())
                results += ";" + message;
            std::fprintf(stderr, "%s", results.c_str());
            std::_Exit(0);
        },
        testing::ExitedWithCode(0), // on a slow machine a signal arrives before the wait
        "^04244;(LogLight SIG 15: Terminated;)?LogLight SIG 2: Interrupt;LogLight SIG 15: Terminated$");
}

} // namespace
