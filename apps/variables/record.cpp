#include "apps/common/introspection/introspection.h"
#include "apps/variables/clock.h"
#include "apps/variables/commands.h"
#include "apps/variables/connection.h"
#include "apps/variables/recording/writer.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <map>
#include <stdexcept>
#include <unistd.h>

namespace {

using Steady = std::chrono::steady_clock;

constexpr std::chrono::seconds TURN{1};
constexpr std::chrono::seconds PATIENCE{10};
// A memory that does not change on a device.
constexpr const char* STILL_MEMORY = "MemStatic";

// Keeps the events of variables as entries of a recording. Events that arrive before start are dropped: the
// start values are read after them.
class Recorder : public ServerConnection::EventHandler {
public:
    Recorder(const std::string& path, const std::vector<VariableId>& variables)
        : writer_(path, variables, universalTime(std::chrono::system_clock::now())) {
        for (const VariableId& variable : variables)
            numbers_.emplace(variable, numbers_.size());
    }

    void handleEvent(const Notify& event) override {
        isSubscribed_ = true;
        VariableId id;
        Introspection::getVarLocation(event, id.mem, id.var);
        const auto found = numbers_.find(id);
        // Events that are not a variable's have the place of the first variable.
        if (!isStarted_ || found == numbers_.end() || id.descriptor().event.id != event.id)
            return;
        writer_.add(elapsed(), found->second, event);
        ++changes_;
    }

    // Whether the broker sends events to this process.
    bool isSubscribed() const { return isSubscribed_; }

    void start() {
        start_ = Steady::now();
        isStarted_ = true;
        writer_.start();
    }

    std::chrono::microseconds elapsed() const {
        return std::chrono::duration_cast<std::chrono::microseconds>(Steady::now() - start_);
    }

    recording::Writer& writer() { return writer_; }

    // "01:00:00  1800000 changes  8.1 MB  2.3 kB/s"
    std::string summary() const {
        const double seconds = static_cast<double>(elapsed().count()) / 1e6;
        const auto whole = static_cast<unsigned long>(seconds);
        const auto bytes = static_cast<double>(writer_.size());
        char text[160];
        std::snprintf(text, sizeof text, "%02lu:%02lu:%02lu  %lu changes  %.1f MB  %.1f kB/s", whole / 3600,
                      whole / 60 % 60, whole % 60, changes_, bytes / 1e6,
                      bytes / 1e3 / std::max(seconds, 1.0));
        return text;
    }

private:
    recording::Writer writer_;
    std::map<VariableId, std::size_t> numbers_;
    bool isSubscribed_ = false;
    bool isStarted_ = false;
    Steady::time_point start_;
    unsigned long changes_ = 0;
};

// Rewrites a line of the terminal every second.
class Progress {
public:
    void show(const Recorder& recorder) {
        if (!isTerminal_ || Steady::now() < next_)
            return;
        std::fprintf(stderr, "\r%s\x1b[K", recorder.summary().c_str());
        next_ = Steady::now() + TURN;
    }
    void end() const {
        if (isTerminal_)
            std::fputs("\r\x1b[K", stderr);
    }

private:
    bool isTerminal_ = isatty(STDERR_FILENO) != 0;
    Steady::time_point next_{};
};

// Waits for events, at most until `end`. Returns false at the end and when the process has to terminate.
bool receive(Connection& connection, Steady::time_point end) {
    connection.requireOpen();
    const auto remaining =
        std::chrono::ceil<std::chrono::milliseconds>(std::min<Steady::duration>(end - Steady::now(), TURN));
    if (remaining.count() <= 0)
        return false;
    return gen::getEventPoll().wait(static_cast<int>(remaining.count()), false) != EventPoll::Terminate;
}

// Subscribes and returns when the broker has sent an event, so that no later one is missed: if no process
// posts one, this process does, of a variable that does not change. Returns false if the process has to
// terminate.
bool subscribe(Connection& connection, const Recorder& recorder) {
    connection->subscribeAll();
    connection->postEvent(MEMORY_ARRAY[Introspection::getMemIndex(STILL_MEMORY)].variables[0].event);
    const Steady::time_point end = Steady::now() + PATIENCE;
    while (!recorder.isSubscribed())
        if (!receive(connection, end)) {
            if (EventPoll::shouldTerminate())
                return false;
            throw std::runtime_error("The message broker sends no events");
        }
    return true;
}

} // namespace

int record(const RecordOptions& options) {
    if (!options.isForced && access(options.file.c_str(), F_OK) == 0)
        throw std::runtime_error(options.file + " exists; --force replaces it");
    const std::vector<VariableId> variables = matchingVariables(options.patterns);
    Connection connection; // before an existing file is replaced
    Recorder recorder(options.file, variables);
    connection->handler = &recorder;
    if (!subscribe(connection, recorder))
        return 1;
    recorder.start();
    const Steady::time_point end =
        options.duration ? Steady::now() + *options.duration : Steady::time_point::max();
    Progress progress;
    while (receive(connection, end)) {
        recorder.writer().flush();
        progress.show(recorder);
    }
    recorder.writer().flush();
    recorder.writer().sync();
    progress.end();
    std::printf("%s\n", recorder.summary().c_str());
    return 0;
}
