#include "apps/common/event/serverconnection.h"

#include "apps/common/diagnostics/diagnostics.h"
#include "apps/common/event/brokersocket.h"

#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <linux/sockios.h>
#include <poll.h>
#include <sched.h>
#include <semaphore.h>
#include <stdexcept>
#include <sys/epoll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

ServerConnection* gServerConnection = nullptr;

namespace {

constexpr int SEMAPHORE_ATTEMPTS = 20;
constexpr int MAX_RECORDS = 256;
constexpr int DRAIN_PAUSE_MS = 100;
constexpr int DRAIN_READS = 4096;
constexpr std::chrono::seconds DRAIN_TIME{1};

// Holds the broker's semaphore until it is destroyed or posts it.
class ReadySemaphore {
public:
    ReadySemaphore() : semaphore_(openSemaphore()) {
        if (sem_wait(semaphore_) == 0)
            return;
        const int reason = errno;
        sem_close(semaphore_);
        errno = reason;
        throwErrorNumber(__FILE__, __LINE__, "sem_wait");
    }

    ~ReadySemaphore() {
        if (isHeld_)
            sem_post(semaphore_);
        sem_close(semaphore_);
    }

    ReadySemaphore(const ReadySemaphore&) = delete;
    ReadySemaphore& operator=(const ReadySemaphore&) = delete;

    void post() {
        isHeld_ = false;
        if (sem_post(semaphore_) < 0)
            throwErrorNumber(__FILE__, __LINE__, "sem_post");
    }

    int failedAttempts() const { return failedAttempts_; }

private:
    sem_t* openSemaphore() {
        sem_t* semaphore;
        while ((semaphore = sem_open(BROKER_SEMAPHORE, 0)) == SEM_FAILED) {
            ++failedAttempts_;
            sched_yield();
            if (failedAttempts_ == SEMAPHORE_ATTEMPTS)
                throwErrorNumber(__FILE__, __LINE__, "sem_open");
        }
        return semaphore;
    }

    int failedAttempts_ = 0;
    bool isHeld_ = true;
    sem_t* semaphore_;
};

// An invalid descriptor is not reported here: registering it fails with the reason.
Descriptor openSocket() {
    Descriptor fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (fd.get() == STDIN_FILENO) // this is the place of standard input
        throwErrorNumber(__FILE__, __LINE__, "socket");
    return fd;
}

} // namespace

ServerConnection::ServerConnection(EventPoll& poll) : ServerConnection(poll, -1) {
    logUnhandled_ = logUnhandledEvent;
    LOG_MESSAGE(LogLight, "Waiting for server");
    ReadySemaphore semaphore;
    connect();
    LOG_MESSAGE(LogLight, "Connected after %i attempts", semaphore.failedAttempts());
    semaphore.post();
}

ServerConnection::ServerConnection(EventPoll& poll, int fd) : poll_(poll), socket_(fd) {
    if (socket_.isOpen())
        poll_.add(socket_.get(), this, EPOLLIN);
}

ServerConnection::~ServerConnection() {
    close();
}

void ServerConnection::connect() {
    close();
    Descriptor fd = openSocket();
    poll_.add(fd.get(), this, EPOLLIN);
    socket_ = std::move(fd);
    if (connectToBroker(socket_.get()) < 0) {
        const int reason = errno;
        close();
        errno = reason;
        throwErrorNumber(__FILE__, __LINE__, "connect");
    }
}

bool ServerConnection::isRead() const {
    int unread = 0;
    return ioctl(socket_.get(), SIOCOUTQ, &unread) == 0 && unread == 0;
}

void ServerConnection::close() {
    if (!socket_.isOpen())
        return;
    unregister();
    shutdown(socket_.get(), SHUT_WR);
    drain();
    socket_.close();
}

// A failure does not matter: closing the descriptor removes it from the poll.
void ServerConnection::unregister() {
    try {
        poll_.remove(socket_.get());
    } catch (const std::runtime_error&) { // already logged
    }
}

// Reads what the broker has already sent, so that its writes succeed and it sees end of file instead of a
// reset. A signal ends the wait as a timeout does.
void ServerConnection::drain() {
    const auto end = std::chrono::steady_clock::now() + DRAIN_TIME;
    char bytes[256];
    for (int reads = 0; reads < DRAIN_READS && std::chrono::steady_clock::now() < end; ++reads) {
        pollfd readable{socket_.get(), POLLIN, 0};
        if (::poll(&readable, 1, DRAIN_PAUSE_MS) <= 0 || ::read(socket_.get(), bytes, sizeof bytes) <= 0)
            return;
    }
}

void ServerConnection::event(EventType type) {
    switch (type) {
    case Readable:
        return receive();
    case Hangup:
        return close();
    case Priority:
    case Writable:
        return;
    }
}

void ServerConnection::receive() {
    if (!socket_.isOpen()) // closed by another callback of the same batch
        return;
    std::array<Notify, MAX_RECORDS> records{};
    int count = 0;
    try {
        count = readEvents(socket_.get(), records.data(), MAX_RECORDS);
    } catch (const std::runtime_error&) { // already logged; the process goes on without the broker
        return close();
    }
    for (int i = 0; i < count; ++i)
        dispatch(records[static_cast<std::size_t>(i)]);
    if (count == 0 && atEndOfStream())
        close();
}

// A socket at end of file stays readable and would wake the loop for ever.
bool ServerConnection::atEndOfStream() const {
    char byte;
    return recv(socket_.get(), &byte, 1, MSG_PEEK | MSG_DONTWAIT) == 0;
}

void ServerConnection::dispatch(const Notify& event) {
    try {
        if (handler != nullptr)
            handler->handleEvent(event);
        else if (logUnhandled_ != nullptr)
            logUnhandled_(event);
    } catch (const std::exception& error) {
        LOG_MESSAGE(Error, "%s", error.what());
    }
}

void ServerConnection::send(const void* message, unsigned int size) {
    const auto end = std::chrono::steady_clock::now() + (isStalled_ ? sendLimit * 0 : sendLimit);
    ssize_t sent;
    do {
        sent = ::send(socket_.get(), message, size, MSG_DONTWAIT | MSG_NOSIGNAL);
    } while (sent < 0 && (errno == EINTR || (errno == EAGAIN && waitUntilWritable(end))));
    isStalled_ = sent < 0;
    if (sent != static_cast<ssize_t>(size))
        throwError(__FILE__, __LINE__, "Could not send message to server");
}

// Returns false at the end of the time and when the process has to terminate.
bool ServerConnection::waitUntilWritable(std::chrono::steady_clock::time_point end) const {
    while (!EventPoll::shouldTerminate()) {
        const auto left =
            std::chrono::ceil<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
        if (left.count() <= 0)
            return false;
        pollfd writable{socket_.get(), POLLOUT, 0};
        const int count = ::poll(&writable, 1, static_cast<int>(left.count()));
        if (count >= 0 || errno != EINTR)
            return count > 0;
    }
    return false;
}

void ServerConnection::postEvent(const Notify& event) {
    send(&event, sizeof event);
    ++posted_;
}

void ServerConnection::subscribe(const Notify& event) {
    const Notify message[] = {{EventSubscribe, 0, 0}, event};
    send(message, sizeof message);
}

void ServerConnection::subscribeAll() {
    const Notify message{EventSubscribeAll, 0, 0};
    send(&message, sizeof message);
}

void postEvent(Notify event) {
    if (gServerConnection == nullptr)
        throwError(__FILE__, __LINE__, "Trying to post event without server connection");
    gServerConnection->postEvent(event);
}
