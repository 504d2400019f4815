#include "apps/web/service/logging.h"

#include "apps/common/diagnostics/diagnostics.h"

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr char COMMAND[] = "dmesg --color=always -w";
constexpr int NOT_EXECUTED = 127;

// Blocks all signals: one that arrived in the child before its exec would run the service's handler there and
// be lost.
class SignalsBlocked {
public:
    SignalsBlocked() {
        sigset_t all;
        sigfillset(&all);
        sigprocmask(SIG_SETMASK, &all, &before_);
    }
    ~SignalsBlocked() { sigprocmask(SIG_SETMASK, &before_, nullptr); }
    SignalsBlocked(const SignalsBlocked&) = delete;
    SignalsBlocked& operator=(const SignalsBlocked&) = delete;

private:
    sigset_t before_{};
};

// An ignored signal stays ignored across exec: SIGPIPE is ignored in the service, but has to end a child
// whose output is not read.
void resetSignals() {
    for (int number = 1; number < NSIG; ++number)
        std::signal(number, SIG_DFL);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
}

void makeStandardOutput(int fd) {
    if (fd == STDOUT_FILENO) {
        fcntl(fd, F_SETFD, 0);
        return;
    }
    dup2(fd, STDOUT_FILENO);
    close(fd);
}

// The service's standard input may be its listening socket.
void makeStandardInputEmpty() {
    close(STDIN_FILENO);
    open("/dev/null", O_RDONLY); // takes the lowest descriptor
}

void dieWith(pid_t parent) {
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    if (getppid() != parent) // the parent has ended before prctl
        _exit(NOT_EXECUTED);
}

[[noreturn]] void runCommand(const char* command, int output, pid_t parent) {
    setpgid(0, 0);
    dieWith(parent);
    makeStandardOutput(output);
    makeStandardInputEmpty();
    closefrom(STDERR_FILENO + 1); // also descriptors that the service inherited without close-on-exec
    resetSignals();
    const char* const words[] = {"sh", "-c", command, nullptr};
    execve("/bin/sh", const_cast<char* const*>(words), environ); // execve does not write to them
    _exit(NOT_EXECUTED);
}

void setNonBlocking(int fd) {
    const int flags = fcntl(fd, F_GETFL);
    if (flags < 0 || fcntl(fd, F_SETFL, flags | O_NONBLOCK) < 0)
        throwErrorNumber(__FILE__, __LINE__, "fcntl");
}

} // namespace

Logging::Logging(EventPoll& poll) : poll_(poll) {}

Logging::~Logging() {
    stop();
}

void Logging::init() {
    pipe_ = Descriptor(popen(COMMAND, pid_));
    try {
        poll_.add(pipe_.get(), this, EPOLLIN);
        setNonBlocking(pipe_.get());
    } catch (const std::exception&) {
        stop();
        throw;
    }
}

int Logging::popen(const char* command, int& pid) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) < 0)
        throwErrorNumber(__FILE__, __LINE__, "pipe");
    Descriptor readEnd(ends[0]);
    const Descriptor writeEnd(ends[1]);
    const pid_t parent = getpid();
    const SignalsBlocked blocked;
    pid = fork();
    if (pid == 0)
        runCommand(command, writeEnd.get(), parent);
    if (pid < 0)
        throwErrorNumber(__FILE__, __LINE__, "fork");
    setpgid(pid, pid); // in the child, too: the group exists whichever process runs first
    return readEnd.release();
}

void Logging::event(EventType type) {
    try {
        if (type == Hangup)
            hangUp();
        else if (type == Priority || type == Readable)
            parseData();
    } catch (const std::exception& exception) {
        LOG_MESSAGE(Error, "%s", exception.what());
        stop();
    }
}

// A failed read, such as one of an empty pipe after a full read, ends the loop like a short one; the next
// event reads again.
void Logging::parseData() {
    ColourSpans::Buffer buffer{};
    ssize_t count = 0;
    do {
        count = read(pipe_.get(), buffer.data(), ColourSpans::READ_SIZE);
        spans_.convert(buffer, count, text_);
    } while (count == static_cast<ssize_t>(ColourSpans::READ_SIZE));
}

void Logging::hangUp() {
    if (ended_)
        return;
    ended_ = true;
    LOG_MESSAGE(Warn, "dmesg exited, no more log output for web gui.");
    reap();
    // Level-triggered, a hang-up is reported with every wait. Edge-triggered, it is reported once more.
    poll_.remove(pipe_.get());
    poll_.add(pipe_.get(), this, EPOLLET);
}

void Logging::reap() {
    if (pid_ > 0 && !reaped_)
        reaped_ = waitpid(pid_, nullptr, WNOHANG) != 0; // -1: there is no such child

    if (reaped_ && ended_)
        pid_ = 0;
}

void Logging::stop() {
    ended_ = true;
    if (pid_ > 0)
        kill(-pid_, SIGTERM);
    if (!pipe_.isOpen())
        return;
    try {
        poll_.remove(pipe_.get());
    } catch (const std::exception&) {
        // logged already; closing also deregisters the pipe
    }
    pipe_.close();
}
