#include "apps/web/service/logging.h"

#include "apps/common/diagnostics/diagnostics.h"
#include "records.h"
#include "tests/unit/diagnostics/logcapture.h"

#include <chrono>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <gmock/gmock.h>
#include <optional>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>

namespace {

using records::openDescriptors;
using testing::HasSubstr;
namespace fs = std::filesystem;

// Collects the children, those below a shell included. False when one does not end in time.
bool haveAllEnded() {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    pid_t ended = 0;
    while ((ended = waitpid(-1, nullptr, WNOHANG)) >= 0 && std::chrono::steady_clock::now() < end)
        if (ended == 0)
            poll(nullptr, 0, 1);
    return ended < 0;
}

// A feed whose dmesg is a shell script. The test process is the subreaper of all its descendants.
class LoggingTest : public testing::Test {
protected:
    LoggingTest() {
        prctl(PR_SET_CHILD_SUBREAPER, 1);
        char name[] = "/tmp/logging-XXXXXX";
        folder_ = mkdtemp(name);
        path_ = getenv("PATH");
        setenv("PATH", (folder_.string() + ":" + path_).c_str(), 1);
        logging_.emplace(poll_);
        LOG_MESSAGE(LogLight, "opens the log before descriptors are counted");
    }
    ~LoggingTest() override {
        logging_.reset();
        haveAllEnded();
        setenv("PATH", path_.c_str(), 1);
        fs::remove_all(folder_);
    }

    void start(const std::string& script) {
        const fs::path tool = folder_ / "dmesg";
        std::ofstream(tool) << "#!/bin/sh\n" << script << "\n";
        fs::permissions(tool, fs::perms::owner_all);
        logging_->init();
    }

    // Runs the loop until `isSo`, or times out.
    template <typename Condition>
    bool run(Condition isSo) {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        while (!isSo() && std::chrono::steady_clock::now() < end) {
            poll_.wait(5, true);
            logging_->reap();
        }
        return isSo();
    }

    bool runUntilText(const std::string& end) {
        return run([&] { return logging_->text().ends_with(end); });
    }

    std::ptrdiff_t hangUps() const {
        const std::vector<std::string> lines = log_.messages();
        return std::count(lines.begin(), lines.end(), "Warn dmesg exited, no more log output for web gui.");
    }

    EventPoll poll_;
    LogCapture log_;
    std::optional<Logging> logging_;
    fs::path folder_;
    std::string path_;
};

TEST_F(LoggingTest, MultipleOf256BytesIsRepeatedUpToItsFirstEscape) {
    start(R"(printf '%s|\033[1m%0234d' "$*" 7; exec sleep 1000)");
    const std::string converted = "--color=always -w|<span style=''>" + std::string(233, '0') + "7";
    ASSERT_TRUE(runUntilText("7--color=always -w|"));
    EXPECT_EQ(logging_->text(), converted + "--color=always -w|");
}

TEST_F(LoggingTest, HangUpIsLoggedOnceAndLeavesNoZombie) {
    const std::ptrdiff_t before = openDescriptors();
    start("exit 3");
    ASSERT_TRUE(run([&] { return hangUps() > 0; }));
    EXPECT_TRUE(run([] { return waitpid(-1, nullptr, WNOHANG | WNOWAIT) < 0; }));
    EXPECT_LE(poll_.wait(0, true), EventPoll::Dispatched); // reported once more when it is registered again
    for (int i = 0; i < 3; ++i)
        EXPECT_NE(poll_.wait(1, true), EventPoll::Dispatched);
    logging_->event(EventPoll::Callback::Hangup);
    EXPECT_EQ(hangUps(), 1);
    EXPECT_EQ(openDescriptors(), before + 1); // the pipe stays open
    logging_.reset();
    EXPECT_EQ(openDescriptors(), before);
    EXPECT_THAT(log_.messages().back(), HasSubstr("Remove  client")); // it was registered to the end
}

TEST_F(LoggingTest, DestructionEndsTheChildAndItsDescendants) {
    start("sleep 1000 & echo started; wait");
    ASSERT_TRUE(runUntilText("started\n"));
    for (int i = 0; i < 50; ++i) {
        logging_.emplace(poll_);
        start("exec sleep 1000");
    }
    logging_.reset();
    EXPECT_TRUE(haveAllEnded());
}

TEST_F(LoggingTest, ChildHasThreeDescriptorsAndDefaultSignals) {
    const int leaking = open("/dev/null", O_RDONLY); // inherited without close-on-exec
    int pid = 0;
    const int fd = Logging::popen(
        "ls /proc/$$/fd; readlink /proc/$$/fd/0; exec grep -E 'Sig(Blk|Ign)' /proc/self/status", pid);
    std::string seen;
    for (char byte = 0; read(fd, &byte, 1) == 1;)
        seen += byte;
    close(leaking);
    close(fd);
    EXPECT_EQ(seen, "0\n1\n2\n/dev/null\nSigBlk:\t0000000000000000\nSigIgn:\t0000000000000000\n");
}

TEST_F(LoggingTest, ChildThatCannotBeExecutedExitsWith127) {
    int pid = 0;
    close(Logging::popen(std::string(1 << 20, 'x').c_str(), pid)); // an argument longer than execve takes
    int status = 0;
    EXPECT_EQ(waitpid(pid, &status, 0), pid);
    EXPECT_EQ(WEXITSTATUS(status), 127);
}

TEST_F(LoggingTest, FailedStartThrowsAndLeavesNothing) {
    const std::ptrdiff_t before = openDescriptors();
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    const rlimit none{0, limit.rlim_max};
    setrlimit(RLIMIT_NOFILE, &none);
    const std::string error = textThrownBy([&] { logging_->init(); });
    setrlimit(RLIMIT_NOFILE, &limit);
    EXPECT_THAT(error, HasSubstr(" pipe: Too many open files"));
    EXPECT_EQ(openDescriptors(), before);
    poll_.close();
    EXPECT_THAT(textThrownBy([&] { start("exec sleep 1000"); }), HasSubstr("already closed handle"));
    EXPECT_TRUE(haveAllEnded());
    EXPECT_EQ(openDescriptors(), before - 1); // the loop's own
}

} // namespace
