#include "apps/common/event/servicemanager.h"

#include "apps/common/diagnostics/diagnostics.h"
#include "apps/common/files/descriptor.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

constexpr std::chrono::microseconds RETRY = std::chrono::seconds(1);

std::string environment(const char* name) {
    const char* const value = std::getenv(name);
    return value != nullptr ? value : "";
}

std::chrono::microseconds watchdogPeriod() {
    const std::string process = environment("WATCHDOG_PID");
    const bool isOthers = !process.empty() && process != std::to_string(getpid());
    return std::chrono::microseconds(
        isOthers ? 0 : std::strtoll(environment("WATCHDOG_USEC").c_str(), nullptr, 10));
}

} // namespace

ServiceManager::ServiceManager() : socket_(environment("NOTIFY_SOCKET")), pause_(watchdogPeriod() / 2) {}

void ServiceManager::reportReady() const {
    send("READY=1");
}

void ServiceManager::feedWatchdog(Clock::time_point now) {
    if (pause_.count() <= 0 || now < next_)
        return;
    next_ = now + (send("WATCHDOG=1") ? pause_ : std::min(pause_, RETRY));
}

void ServiceManager::askForRestart(Clock::time_point now) {
    if (isRestartAsked_ || now < nextAsk_)
        return;
    isRestartAsked_ = send("WATCHDOG=trigger");
    nextAsk_ = now + RETRY;
}

bool ServiceManager::send(const std::string& message) const {
    if (socket_.empty())
        return true;
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::size_t length = socket_.copy(address.sun_path, sizeof address.sun_path);
    if (socket_.front() == '@')
        address.sun_path[0] = '\0';
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + length);
    const Descriptor fd(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (fd.isOpen() && sendto(fd.get(), message.data(), message.size(), MSG_DONTWAIT | MSG_NOSIGNAL,
                              reinterpret_cast<const sockaddr*>(&address), size) >= 0)
        return true;
    LOG_MESSAGE(Warn, "%s: %s", socket_.c_str(), std::strerror(errno));
    return false;
}
