#pragma once

#include "apps/common/event/eventpoll.h"
#include "apps/common/files/descriptor.h"
#include "apps/web/service/log/colourspans.h"

#include <string>

/// The kernel log as coloured HTML: runs the system's dmesg as a child, reads its output inside the event
/// loop and keeps all of it, converted, for as long as it lives. Nothing is ever taken away from the text.
///
///     kernel log --> dmesg --pipe--> ColourSpans --> text
///
/// The child is started once. When it is gone the text stays as it is, and what its pipe still held is not
/// read.
///
/// The child and what it starts are one process group, which SIGTERM ends together with the object, whether
/// or not the shell stays as dmesg's parent. Where the service dies without that, the kernel sends SIGTERM to
/// the child; a dmesg below a shell that stayed then ends with its next line, as nobody reads its pipe.
class Logging : public EventPoll::Callback {
public:
    /// Starts nothing. `poll` must outlive the object.
    explicit Logging(EventPoll& poll);

    /// Asks the child to end and does not wait for that.
    ~Logging() override;
    Logging(const Logging&) = delete;
    Logging& operator=(const Logging&) = delete;

    /// Starts "dmesg --color=always -w" and registers its output. To be called once. Throws through
    /// throwErrorNumber with "pipe", "fork", "epoll_ctl", "fcntl"; no child is left then.
    void init();

    /// Runs `command` by /bin/sh in a process group of its own, with its standard output into a pipe. The
    /// child has the descriptors 0, 1 and 2, the parent's environment, no signal blocked and all of them at
    /// their defaults. Returns the pipe's read end, close-on-exec, which the caller owns, and the child's
    /// process id in `pid`. A command that cannot be run ends with 127. Throws through throwErrorNumber with
    /// "pipe" and "fork".
    static int popen(const char* command, int& pid);

    /// Readable or urgent: reads all that is there. Hang-up: tells it once, as "dmesg exited, no more log
    /// output for web gui." at Warn, and leaves the pipe open and registered without being woken by it again.
    /// Throws nothing: what goes wrong, as memory that is used up, is told at Error and ends the feed.
    void event(EventType type) override;

    /// Collects the child if it has ended. At the hang-up it need not have: to be called again now and then.
    void reap();

    const std::string& text() const { return text_; }

    /// Of the two digits `on` and `off` makes the six of an HTML colour, by the bits red 1, green 2, blue 4.
    static std::string getColor(unsigned int colour, const char* on, const char* off) {
        return ColourSpans::getColor(colour, on, off);
    }

private:
    void parseData();
    void hangUp();
    void stop();

    EventPoll& poll_;
    std::string text_;
    Descriptor pipe_;
    int pid_ = 0; // of the child and of its group; 0 again when nobody is left to be signalled
    bool reaped_ = false;
    bool ended_ = false; // no more text will come
    ColourSpans spans_;
};
