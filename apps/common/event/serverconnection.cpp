#include "apps/common/event/serverconnection.h"

#include "apps/common/diagnostics/diagnostics.h"

#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <poll.h>
#include <sched.h>
#include <semaphore.h>
#include <stdexcept>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

ServerConnection* gServerConnection = nullptr;

namespace {

constexpr const char* SEMAPHORE_NAME = "/message-broker-ready";
constexpr int SEMAPHORE_ATTEMPTS = 20;
constexpr char SOCKET_PATH[] = "/var/volatile/message-broker.socket";
constexpr int MAX_RECORDS = 256;
constexpr int DRAIN_PAUSE_MS = 100;
constexpr int DRAIN_READS = 4096;
constexpr std::chrono::seconds DRAIN_TIME{1};

// The turn to connect: the broker's semaphore, taken as long as the object lives or until it is given back.
class BrokerTurn {
public:
    BrokerTurn() : semaphore_(openSemaphore()) {
        if (sem_wait(semaphore_) == 0)
            return;
        const int reason = errno;
        sem_close(semaphore_);
        errno = reason;
        throwErrorNumber(__FILE__, __LINE__, "sem_wait");
    }

    ~BrokerTurn() {
        if (isTaken_)
            sem_post(semaphore_);
        sem_close(semaphore_);
    }

    BrokerTurn(const BrokerTurn&) = delete;
    BrokerTurn& operator=(const BrokerTurn&) = delete;

    void giveBack() {
        isTaken_ = false;
        if (sem_post(semaphore_) < 0)
            throwErrorNumber(__FILE__, __LINE__, "sem_post");
    }

    int failedAttempts() const { return failedAttempts_; }

private:
    sem_t* openSemaphore() {
        sem_t* semaphore;
        while ((semaphore = sem_open(SEMAPHORE_NAME, 0)) == SEM_FAILED) {
            ++failedAttempts_;
            sched_yield();
            if (failedAttempts_ == SEMAPHORE_ATTEMPTS)
                throwErrorNumber(__FILE__, __LINE__, "sem_open");
        }
        return semaphore;
    }

    int failedAttempts_ = 0;
    bool isTaken_ = true;
    sem_t* semaphore_;
};

// Returns -1 when there are no sockets to be had: registering that fails, and says why.
int openSocket() {
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd == 0) { // that is standard input's place, not a connection's
        close(fd);
        throwErrorNumber(__FILE__, __LINE__, "socket");
    }
    return fd;
}

// The address has the full size of its structure.
int connectToBroker(int fd) {
    sockaddr_un address{};
    static_assert(sizeof SOCKET_PATH <= sizeof address.sun_path);
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, SOCKET_PATH, sizeof SOCKET_PATH);
    return connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address);
}

} // namespace

ServerConnection::ServerConnection(EventPoll& poll) : ServerConnection(poll, -1) {
    LOG_MESSAGE(LogLight, "Waiting for server");
    BrokerTurn turn;
    connect();
    LOG_MESSAGE(LogLight, "Connected after %i attempts", turn.failedAttempts());
    turn.giveBack();
}

ServerConnection::ServerConnection(EventPoll& poll, int fd) : poll_(poll), fd_(fd) {
    if (fd_ >= 0)
        poll_.add(fd_, this, EPOLLIN);
}

ServerConnection::~ServerConnection() {
    close();
}

void ServerConnection::connect() {
    close();
    const int fd = openSocket();
    try {
        poll_.add(fd, this, EPOLLIN);
    } catch (...) {
        ::close(fd);
        throw;
    }
    fd_ = fd;
    if (connectToBroker(fd_) < 0) {
        const int reason = errno;
        close();
        errno = reason;
        throwErrorNumber(__FILE__, __LINE__, "connect");
    }
}

void ServerConnection::close() {
    if (fd_ < 0)
        return;
    unregister();
    shutdown(fd_, SHUT_WR);
    drain();
    ::close(fd_);
    fd_ = -1;
}

// Closing goes on whatever the poll says: the descriptor leaves it then at the latest.
void ServerConnection::unregister() {
    try {
        poll_.remove(fd_);
    } catch (const std::runtime_error&) { // it has been logged
    }
}

// What the broker had sent is taken, so that its writes still succeed and it sees an orderly end. A signal
// ends the wait as silence does.
void ServerConnection::drain() {
    const auto end = std::chrono::steady_clock::now() + DRAIN_TIME;
    char bytes[256];
    for (int reads = 0; reads < DRAIN_READS && std::chrono::steady_clock::now() < end; ++reads) {
        pollfd readable{fd_, POLLIN, 0};
        if (::poll(&readable, 1, DRAIN_PAUSE_MS) <= 0 || ::read(fd_, bytes, sizeof bytes) <= 0)
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
        return;
    }
}

void ServerConnection::receive() {
    if (fd_ < 0) // closed by another callback of the same batch
        return;
    std::array<Notify, MAX_RECORDS> records{};
    int count = 0;
    try {
        count = readEvents(fd_, records.data(), MAX_RECORDS);
    } catch (const std::runtime_error&) { // it has been logged; the process does without the broker
        return close();
    }
    for (int i = 0; i < count; ++i)
        dispatch(records[static_cast<std::size_t>(i)]);
    if (count == 0 && atEndOfStream())
        close();
}

// A socket at its end stays readable: left in the poll it would wake the loop again and again.
bool ServerConnection::atEndOfStream() const {
    char byte;
    return recv(fd_, &byte, 1, MSG_PEEK | MSG_DONTWAIT) == 0;
}

void ServerConnection::dispatch(const Notify& event) {
    if (handler == nullptr) {
        LOG_MESSAGE(Warn, "Unhandled event: %s", eventName(event));
        return;
    }
    try {
        handler->handleEvent(event);
    } catch (const std::exception& error) {
        LOG_MESSAGE(Error, "%s", error.what());
    }
}

// EINTR is a failure here: so small a write is interrupted only while it waits for a broker that has stopped
// reading, and a process that is told to terminate must not wait for it again.
void ServerConnection::send(const void* message, unsigned int size) {
    if (::write(fd_, message, size) != static_cast<ssize_t>(size))
        throwError(__FILE__, __LINE__, "Could not send message to server");
}

void ServerConnection::postEvent(const Notify& event) {
    send(&event, sizeof event);
}

void ServerConnection::subscribe(const Notify& event) {
    const Notify message[] = {{EventSubscribe, 0, 0}, event};
    send(message, sizeof message);
}

void ServerConnection::subscribeAll() {
    postEvent({EventSubscribeAll, 0, 0});
}

int readEvents(int fd, Notify* buffer, int max) {
    ssize_t bytes;
    do {
        bytes = read(fd, buffer, sizeof(Notify) * static_cast<std::size_t>(max));
    } while (bytes < 0 && errno == EINTR); // nothing was taken yet
    if (bytes < 0)
        throwError(__FILE__, __LINE__, "Read error");
    return static_cast<int>(static_cast<std::size_t>(bytes) / sizeof(Notify));
}

void postEvent(const Notify& event) {
    if (gServerConnection == nullptr)
        throwError(__FILE__, __LINE__, "Trying to post event without server connection");
    gServerConnection->postEvent(event);
}
