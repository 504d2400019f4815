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

// Keeps all signals waiting while it lives: one that met the child before its exec would run the service's
// handler there and be lost.
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

// What exec would hand on: SIGPIPE is ignored in the service, but has to end a child that nobody listens to.
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

void dieWith(pid_t parent) {
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    if (getppid() != parent) // gone before the kernel knew
        _exit(NOT_EXECUTED);
}

[[noreturn]] void runCommand(const char* command, const int (&ends)[2], pid_t parent) {
    setpgid(0, 0);
    dieWith(parent);
    close(ends[0]);
    makeStandardOutput(ends[1]);
    closefrom(STDERR_FILENO + 1); // also what the service itself was given by whoever started it
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
    const pid_t parent = getpid();
    const SignalsBlocked blocked;
    pid = fork();
    if (pid == 0)
        runCommand(command, ends, parent);
    const int error = errno;
    close(ends[1]);
    if (pid < 0) {
        close(ends[0]);
        errno = error;
        throwErrorNumber(__FILE__, __LINE__, "fork");
    }
    setpgid(pid, pid); // both sides do it: whoever comes first, the group is there for both
    return ends[0];
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

// A read that fails, as one that finds the pipe empty behind a full read, counts like a short one and ends
// the loop: no reason is told apart, and the next readiness reads again.
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
    // A hang-up is reported for as long as it lasts, which is for ever. Edge-triggered it comes once more.
    poll_.remove(pipe_.get());
    poll_.add(pipe_.get(), this, EPOLLET);
}

void Logging::reap() {
    if (pid_ > 0 && !reaped_)
        reaped_ = waitpid(pid_, nullptr, WNOHANG) != 0; // with -1 it is not there to be collected
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
        // told already; closing takes the pipe out as well
    }
    pipe_.close();
}
