#include "apps/common/event/eventpoll.h"

#include "apps/common/diagnostics/diagnostics.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <fcntl.h>
#include <stdexcept>
#include <string>
#include <sys/epoll.h>
#include <unistd.h>

namespace {

// Set by the signal handler, read by the loop.
std::atomic<bool> gTick{false};
std::atomic<std::uint32_t> gPendingSignals{0};
std::atomic<bool> gTerminate{false};
static_assert(std::atomic<bool>::is_always_lock_free && std::atomic<std::uint32_t>::is_always_lock_free,
              "a signal handler must not wait for a lock");

constexpr int MASKED_SIGNALS = 32;

void onSignal(int signal) {
    if (signal == SIGALRM) {
        gTick = true;
        return;
    }
    if (signal < MASKED_SIGNALS)
        gPendingSignals |= std::uint32_t{1} << signal;
    gTerminate = true;
}

void installSignalHandlers() {
    struct sigaction action {};
    action.sa_handler = onSignal;
    sigfillset(&action.sa_mask);
    action.sa_flags = 0; // no SA_RESTART: a signal interrupts epoll_wait
    for (const int signal : {SIGINT, SIGTERM, SIGALRM})
        sigaction(signal, &action, nullptr);
    std::signal(SIGPIPE, SIG_IGN);
}

void logPendingSignals() {
    const std::uint32_t pending = gPendingSignals.exchange(0);
    for (int signal = 0; signal < MASKED_SIGNALS; ++signal)
        if ((pending >> signal & 1U) != 0)
            LOG_MESSAGE(LogLight, "SIG %i: %s", signal, strsignal(signal));
}

// One call per event. Hang-up takes precedence, because the callback then closes the descriptor.
void dispatch(const epoll_event& event) {
    auto* callback = static_cast<EventPoll::Callback*>(event.data.ptr);
    if (callback == nullptr) {
        LOG_MESSAGE(Warn, "Unhandled event: %08x", event.events);
        return;
    }
    LOG_MESSAGE(DebugAll, "Call    client %p for events %08x", event.data.ptr, event.events);
    if ((event.events & EPOLLHUP) != 0)
        callback->event(EventPoll::Callback::Hangup);
    else if ((event.events & EPOLLPRI) != 0)
        callback->event(EventPoll::Callback::Priority);
    else if ((event.events & EPOLLIN) != 0)
        callback->event(EventPoll::Callback::Readable);
    else if ((event.events & EPOLLOUT) != 0)
        callback->event(EventPoll::Callback::Writable);
}

timer_t createTimer(EventPoll* poll) {
    sigevent notification{};
    notification.sigev_notify = SIGEV_SIGNAL;
    notification.sigev_signo = SIGALRM;
    notification.sigev_value.sival_ptr = poll;
    timer_t timer;
    if (timer_create(CLOCK_MONOTONIC, &notification, &timer) < 0)
        throwErrorNumber(__FILE__, __LINE__, "timer create");
    return timer;
}

} // namespace

EventPoll::EventPoll() {
    installSignalHandlers();
    epoll_ = Descriptor(epoll_create(1));
    if (!epoll_.isOpen())
        throw std::runtime_error(std::string("epoll_create: ") + std::strerror(errno));
    fcntl(epoll_.get(), F_SETFD, FD_CLOEXEC);
}

EventPoll::~EventPoll() {
    if (timer_)
        timer_delete(*timer_);
}

void EventPoll::add(int fd, Callback* callback, unsigned int events) {
    if (!epoll_.isOpen())
        throwError(__FILE__, __LINE__, "add called on an already closed handle");
    epoll_event event{};
    event.events = events;
    event.data.ptr = callback;
    if (epoll_ctl(epoll_.get(), EPOLL_CTL_ADD, fd, &event) < 0)
        throwErrorNumber(__FILE__, __LINE__, "epoll_ctl");
    LOG_MESSAGE(DebugMost, "Add new client %i/%p", fd, event.data.ptr);
}

void EventPoll::remove(int fd) {
    if (!epoll_.isOpen())
        return;
    if (epoll_ctl(epoll_.get(), EPOLL_CTL_DEL, fd, nullptr) < 0)
        throwErrorNumber(__FILE__, __LINE__, "epoll_ctl");
    LOG_MESSAGE(DebugMost, "Remove  client %i", fd);
}

void EventPoll::setTimer(int intervalMs) {
    if (intervalMs == -1) {
        if (timer_)
            timer_delete(*timer_);
        timer_.reset();
        return;
    }
    if (!timer_)
        timer_ = createTimer(this);
    itimerspec period{};
    period.it_interval.tv_sec = intervalMs / 1000;
    period.it_interval.tv_nsec = intervalMs % 1000 * 1000000L;
    period.it_value = period.it_interval;
    if (timer_settime(*timer_, 0, &period, nullptr) < 0)
        throwErrorNumber(__FILE__, __LINE__, "timer set");
}

int EventPoll::wait(int timeoutMs, bool ignoreTerminate) {
    logPendingSignals();
    if (!ignoreTerminate && shouldTerminate())
        return Terminate;
    if (!epoll_.isOpen())
        throwError(__FILE__, __LINE__, "wait called on an already closed handle");
    epoll_event events[MAX_EVENTS];
    const int count = epoll_wait(epoll_.get(), events, MAX_EVENTS, timeoutMs);
    if (count < 0)
        return waitFailed();
    if (count == 0)
        return Timeout;
    for (int i = 0; i < count; ++i)
        dispatch(events[i]);
    return gTick.exchange(false) ? Tick : Dispatched;
}

// An interrupted wait is not retried: the caller decides by the result.
int EventPoll::waitFailed() {
    if (errno != EINTR)
        throwErrorNumber(__FILE__, __LINE__, "epoll_wait");
    return gTick.exchange(false) ? Tick : Interrupted;
}

int EventPoll::close() {
    return epoll_.close();
}

bool EventPoll::shouldTerminate() {
    return gTerminate;
}
