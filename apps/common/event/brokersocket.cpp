#include "apps/common/event/brokersocket.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <ctime>
#include <poll.h>
#include <semaphore.h>
#include <stdexcept>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr char SOCKET_PATH[] = "/var/volatile/message-broker.socket";

// The child's message: an error number, and the connected socket as ancillary data if it is 0.
struct Passed {
    int error = 0;
    iovec content{&error, sizeof error};
    alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(int))> control{};
    msghdr message{};

    Passed() {
        message.msg_iov = &content;
        message.msg_iovlen = 1;
        message.msg_control = control.data();
        message.msg_controllen = control.size();
    }
    Passed(const Passed&) = delete;
    Passed& operator=(const Passed&) = delete;

    void attach(int fd) {
        cmsghdr* const header = CMSG_FIRSTHDR(&message);
        header->cmsg_level = SOL_SOCKET;
        header->cmsg_type = SCM_RIGHTS;
        header->cmsg_len = CMSG_LEN(sizeof fd);
        std::memcpy(CMSG_DATA(header), &fd, sizeof fd);
    }
    Descriptor attached() {
        int fd = -1;
        if (const cmsghdr* const header = CMSG_FIRSTHDR(&message); header != nullptr)
            std::memcpy(&fd, CMSG_DATA(header), sizeof fd);
        return Descriptor(fd);
    }
};

timespec after(std::chrono::milliseconds time) {
    const auto seconds = std::chrono::ceil<std::chrono::seconds>(time);
    timespec end{};
    clock_gettime(CLOCK_MONOTONIC, &end);
    end.tv_sec += static_cast<time_t>(seconds.count());
    return end;
}

// Returns 0 or the error number.
int connectInTurn(int fd, std::chrono::milliseconds patience) {
    sem_t* const semaphore = sem_open(BROKER_SEMAPHORE, 0);
    if (semaphore == SEM_FAILED)
        return errno;
    const timespec end = after(patience);
    while (sem_clockwait(semaphore, CLOCK_MONOTONIC, &end) < 0)
        if (errno != EINTR)
            return errno;
    const int error = connectToBroker(fd) == 0 ? 0 : errno;
    sem_post(semaphore);
    return error;
}

// Signals of the terminal go to the parent alone. The child ends after its parent has stopped waiting.
[[noreturn]] void runChild(int parent, std::chrono::milliseconds patience) {
    setsid();
    signal(SIGTERM, SIG_IGN);
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    Passed passed;
    passed.error = fd < 0 ? errno : connectInTurn(fd, 2 * patience);
    if (passed.error == 0)
        passed.attach(fd);
    else
        passed.message.msg_controllen = 0;
    sendmsg(parent, &passed.message, MSG_NOSIGNAL);
    _exit(0);
}

[[noreturn]] void fail(const char* reason) {
    throw std::runtime_error(std::string("The message broker cannot be reached: ") + reason);
}

Descriptor receive(int child, std::chrono::milliseconds patience) {
    pollfd waiting{child, POLLIN, 0};
    if (poll(&waiting, 1, static_cast<int>(patience.count())) <= 0)
        fail("another process is connecting all the time");
    Passed passed;
    if (recvmsg(child, &passed.message, MSG_CMSG_CLOEXEC) != sizeof passed.error)
        fail("the connecting process has ended");
    if (passed.error != 0)
        fail(std::strerror(passed.error));
    return passed.attached();
}

} // namespace

// The address has the full size of its structure.
int connectToBroker(int fd) {
    sockaddr_un address{};
    static_assert(sizeof SOCKET_PATH <= sizeof address.sun_path);
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, SOCKET_PATH, sizeof SOCKET_PATH);
    return connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address);
}

bool isBrokerMissing() {
    // The broker's stream socket refuses a datagram socket, with another error than a path without a process.
    const Descriptor probe(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    return connectToBroker(probe.get()) < 0 && (errno == ENOENT || errno == ECONNREFUSED);
}

Descriptor connectApart(std::chrono::milliseconds patience) {
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) < 0)
        fail(std::strerror(errno));
    Descriptor own(ends[0]);
    Descriptor childs(ends[1]);
    const pid_t child = fork();
    if (child == 0)
        runChild(childs.get(), patience);
    childs.close();
    if (child < 0)
        fail(std::strerror(errno));
    Descriptor connection = receive(own.get(), patience);
    waitpid(child, nullptr, 0);
    return connection;
}

bool isOfVirtualDevice(int fd) {
    sockaddr_un address{};
    socklen_t length = sizeof address;
    if (getpeername(fd, reinterpret_cast<sockaddr*>(&address), &length) < 0)
        return false;
    const std::string path(address.sun_path, strnlen(address.sun_path, sizeof address.sun_path));
    return path != SOCKET_PATH && path.ends_with(SOCKET_PATH);
}
