#pragma once

#include "apps/common/files/descriptor.h"

#include <ctime>
#include <optional>

/// The event loop of a single-threaded process: descriptors, each with a callback, and signals. SIGINT and
/// SIGTERM become a request to terminate, SIGALRM of the periodic timer becomes a tick, SIGPIPE is ignored,
/// so that writing to a closed socket fails instead of ending the process. Signals are the process's: one
/// EventPoll exists at a time.
///
/// A system call that fails throws std::runtime_error through throwErrorNumber with the text given at the
/// function, and changes nothing.
class EventPoll {
public:
    /// Owner of a descriptor. The poll does not own its callbacks: remove the descriptor before its callback
    /// is destroyed.
    class Callback {
    public:
        enum EventType {
            Priority = 0, ///< urgent data (EPOLLPRI)
            Readable = 1, ///< data or end of file (EPOLLIN)
            Hangup = 2,   ///< the peer has closed (EPOLLHUP); data may still be there
            Writable = 3, ///< room for output (EPOLLOUT), of descriptors that were added for it only
        };

        /// Called once for each event of a wait, with the first that applies of Hangup, Priority, Readable
        /// and Writable. May add and remove descriptors, its own included. The rest of the batch is still
        /// delivered, so the object must outlive this wait. An exception abandons the batch and leaves wait.
        virtual void event(EventType type) = 0;
        virtual ~Callback() = default;
    };

    /// What wait returns.
    enum Result {
        Interrupted = 0, ///< by a signal other than the timer's
        Tick = 1,        ///< the timer has expired; events may have been dispatched as well
        Timeout = 2,     ///< no event came in time
        Dispatched = 3,  ///< at least one event came, and no tick
        Terminate = 4,   ///< SIGINT or SIGTERM has come
    };

    /// Largest number of events that one wait dispatches.
    static constexpr int MAX_EVENTS = 8;

    /// Installs the signal handlers and creates the epoll set. Throws std::runtime_error "epoll_create:
    /// <reason>", without a log line.
    EventPoll();

    /// Closes the set and deletes the timer. The descriptors in the set stay open, the signal handlers stay
    /// installed.
    ~EventPoll();
    EventPoll(const EventPoll&) = delete;
    EventPoll& operator=(const EventPoll&) = delete;

    /// Registers `fd` for `events`, a mask of EPOLL... values; hang-up is always reported. Does not own
    /// either of them. Throws "add called on an already closed handle" and "epoll_ctl".
    void add(int fd, Callback* callback, unsigned int events);

    /// Deregisters `fd`. Throws "epoll_ctl" when it is not registered. Does nothing on a closed set.
    void remove(int fd);

    /// Makes wait return Tick every `intervalMs`; 0 stops the ticks, -1 also deletes the timer.
    /// Throws "timer create" and "timer set".
    void setTimer(int intervalMs);

    /// Waits up to `timeoutMs` (-1: without end) for at most MAX_EVENTS events and hands them to their
    /// callbacks. Returns a Result. Termination is sticky: from the first SIGINT or SIGTERM on every call
    /// returns Terminate at once, unless `ignoreTerminate`; a wait that the signal interrupts still returns
    /// Interrupted. The next call logs each signal once. Throws "wait called on an already
    /// closed handle" and "epoll_wait".
    int wait(int timeoutMs, bool ignoreTerminate);

    /// Closes the set. Returns close's result, or a negative value when it was closed already.
    int close();

    /// True when SIGINT or SIGTERM has come.
    static bool shouldTerminate();

private:
    int waitFailed();

    Descriptor epoll_;
    // Not a null timer_t for "none": the kernel's first timer has that value.
    std::optional<timer_t> timer_;
};
