#include "apps/common/event/servicemanager.h"

#include "apps/common/files/descriptor.h"
#include "tests/unit/diagnostics/logcapture.h"

#include <cstdio>
#include <cstdlib>
#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/un.h>

namespace {

using namespace std::chrono_literals;

class ServiceManagerTest : public testing::Test {
protected:
    ServiceManagerTest() {
        sockaddr_un address{AF_UNIX, {}};
        socket_.copy(address.sun_path, sizeof address.sun_path);
        const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + socket_.size());
        EXPECT_EQ(bind(systemd_.get(), reinterpret_cast<const sockaddr*>(&address), size), 0);
        setenv("NOTIFY_SOCKET", socket_.c_str(), 1);
        setenv("WATCHDOG_USEC", "10000000", 1);
    }
    ~ServiceManagerTest() override {
        for (const char* name : {"NOTIFY_SOCKET", "WATCHDOG_USEC", "WATCHDOG_PID"})
            unsetenv(name);
        unlink(socket_.c_str());
    }

    // The message that has arrived; empty if none has.
    std::string received() const {
        char message[64];
        const ssize_t size = recv(systemd_.get(), message, sizeof message, MSG_DONTWAIT);
        return size < 0 ? "" : std::string(message, static_cast<std::size_t>(size));
    }

    const std::string socket_ = "/tmp/notify-" + std::to_string(getpid());
    const Descriptor systemd_{socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)};
    LogCapture log_;
};

TEST_F(ServiceManagerTest, ReportsOnceInHalfAPeriod) {
    ServiceManager manager;
    manager.reportReady();
    EXPECT_EQ(received(), "READY=1");
    const ServiceManager::Clock::time_point start = ServiceManager::Clock::now();
    for (const auto& [time, message] :
         {std::pair{0s, "WATCHDOG=1"}, {4s, ""}, {5s, "WATCHDOG=1"}, {9s, ""}}) {
        manager.feedWatchdog(start + time);
        EXPECT_EQ(received(), message) << time.count();
    }
    setenv("WATCHDOG_PID", "1", 1);
    ServiceManager().feedWatchdog();
    EXPECT_EQ(received(), "") << "the watchdog of another process";
    unsetenv("NOTIFY_SOCKET");
    ServiceManager().reportReady();
    EXPECT_THAT(log_.messages(), testing::IsEmpty());
    setenv("NOTIFY_SOCKET", "/nonexistent", 1);
    ServiceManager().reportReady();
    EXPECT_THAT(log_.messages(), testing::ElementsAre("Warn /nonexistent: No such file or directory"));
}

TEST_F(ServiceManagerTest, RepeatsAReportThatFailed) {
    ServiceManager manager;
    const ServiceManager::Clock::time_point start = ServiceManager::Clock::now();
    const std::string away = socket_ + "-away";
    std::rename(socket_.c_str(), away.c_str());
    manager.feedWatchdog(start);
    manager.askForRestart(start);
    std::rename(away.c_str(), socket_.c_str());
    manager.feedWatchdog(start + 1s);
    EXPECT_EQ(received(), "WATCHDOG=1");
    for (const char* message : {"WATCHDOG=trigger", ""}) {
        manager.askForRestart(start + 1s);
        EXPECT_EQ(received(), message);
    }
}

} // namespace
