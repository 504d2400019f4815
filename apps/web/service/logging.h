#pragma once

#include "apps/common/event/eventpoll.h"
#include "apps/common/files/descriptor.h"
#include "apps/web/service/log/colourspans.h"

#include <string>

/// The kernel log as coloured HTML: runs the system's dmesg as a child, reads its output inside the event
/// loop, converts it and keeps all of it. The text only grows.
///
///     kernel log --> dmesg --pipe--> ColourSpans --> text
///
/// The child is started once. After its end the text does not change, and bytes left in its pipe are not
/// read.
///
/// The child and its descendants are one process group, which the destructor ends with SIGTERM, whether or
/// not the shell remains as dmesg's parent. When the service is killed, the kernel sends SIGTERM to the
/// child; a dmesg below a remaining shell then ends with its next line, because its pipe is closed.
class Logging : public EventPoll::Callback {
public:
    /// Starts nothing. `poll` must outlive the object.
    explicit Logging(EventPoll& poll);

    /// Sends SIGTERM to the child's group and does not wait.
    ~Logging() override;
    Logging(const Logging&) = delete;
    Logging& operator=(const Logging&) = delete;

    /// Starts "dmesg --color=always -w" and registers its output. REQUIRES: called once. Throws through
    /// throwErrorNumber with "pipe", "fork", "epoll_ctl", "fcntl"; the child is ended then.
    void init();

    /// Runs `command` by /bin/sh in a process group of its own, with its standard output into a pipe. The
    /// child has the descriptors 0, 1 and 2, the parent's environment, and all signals unblocked with their
    /// default actions. Returns the pipe's read end, close-on-exec, which the caller owns, and the child's
    /// process id in `pid`. A command that cannot be run exits with status 127. Throws through
    /// throwErrorNumber with "pipe" and "fork".
    static int popen(const char* command, int& pid);

    /// Readable or urgent: parseData. Hang-up: logs "dmesg exited, no more log output for web gui." at Warn,
    /// once, and leaves the pipe open and registered, but edge-triggered, so that it does not wake the loop
    /// again. Throws nothing: a failure, such as exhausted memory, is logged at Error and ends the feed.
    void event(EventType type) override;

    /// Reads, converts and appends all that the pipe holds.
    void parseData();

    /// Collects the child if it has ended. It may still run at the hang-up, so call this repeatedly.
    void reap();

    const std::string& text() const { return text_; }

    /// See ColourSpans::getColor.
    static std::string getColor(unsigned int colour, const char* on, const char* off) {
        return ColourSpans::getColor(colour, on, off);
    }

private:
    void hangUp();
    void stop();

    EventPoll& poll_;
    std::string text_;
    Descriptor pipe_;
    int pid_ = 0; // of the child and of its group; 0 when the group has ended
    bool reaped_ = false;
    bool ended_ = false; // no more text will come
    ColourSpans spans_;
};
