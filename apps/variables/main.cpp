#include "apps/common/diagnostics/logwriter.h"
#include "apps/common/event/brokersocket.h"
#include "apps/variables/clock.h"
#include "apps/variables/command.h"
#include "apps/variables/commands.h"
#include "apps/variables/completion.h"
#include "apps/variables/output.h"
#include "gen/code/gen.h"
#include "gen/code/memories.h"

#include <cstdio>
#include <cstdlib>
#include <exception>

void processPreInit() {}
void processPostInit() {}

namespace {

constexpr const char* VERSIONS = "variables " VERSION "\ncatalogue " CATALOGUE_HASH;

// Start of an exception's text from the floors below: "       sharedmemory.cpp:  61 /MemApp: No such file".
std::string withoutPlace(const std::string& text) {
    const std::size_t place = text.find(".cpp:");
    const std::size_t blank =
        place == std::string::npos ? place : text.find_first_not_of(" 0123456789", place + 5);
    return blank == std::string::npos ? text : text.substr(blank);
}

void openDevice() {
    try {
        gen::openMemories();
    } catch (const std::exception& error) {
        throw std::runtime_error("The device's memories cannot be opened: " + withoutPlace(error.what()));
    }
}

template <typename Options>
int onDevice(int (*command)(const Options&), const Options& options) {
    openDevice();
    return command(options);
}

// Values are in the memories, but processes do not hear of changes without the broker.
template <typename Options>
int reading(int (*command)(const Options&), const Options& options) {
    const int status = onDevice(command, options);
    if (isBrokerMissing())
        std::fputs("variables: The message broker is not running; the values may be out of date\n", stderr);
    return status;
}

int complete(const std::vector<Command>& commands, const std::vector<std::string>& words) {
    for (const std::string& text : completions(commands, words))
        std::puts(text.c_str());
    return 0;
}

// Returns 2 on a failure, as diff(1).
int diffOnDevice(const DiffOptions& options) {
    try {
        return options.other.empty() ? onDevice(diff, options) : diff(options);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "variables: %s\n", withoutPlace(error.what()).c_str());
        return 2;
    }
}

double speedFromText(const std::string& text) {
    char* end = nullptr;
    const double speed = std::strtod(text.c_str(), &end);
    if (!(speed >= 0.001 && speed <= 1e6) || *end != '\0')
        throw std::invalid_argument(text + " is not a speed between 0.001 and 1000000");
    return speed;
}

// What the command line gives to the commands.
struct Options {
    ListOptions list;
    GetOptions get;
    SetOptions set;
    WatchOptions watch;
    RecordOptions record;
    ReplayOptions replay;
    SnapshotOptions snapshot;
    DiffOptions diff;
    RestoreOptions restore;
};

// Reads a duration into `target`, which may be optional.
template <typename Target>
Command::Store duration(Target& target) {
    return [&target](const std::string& text) { target = durationFromText(text); };
}

void addValueCommands(std::vector<Command>& all, Options& options) {
    all.emplace_back(
           "list", "List names, types, bounds and values", [&] { return reading(list, options.list); })
        .flag("json", options.list.isJson, "Print an array of objects")
        .flag("long", options.list.isLong,
              "Also event id, place and size in the memory, entries of enumerations, description")
        .several("PATTERN", Words::Names, options.list.patterns);
    all.emplace_back(
           "get", "Print values, each on a line", [&] { return reading(get, options.get); })
        .flag("json", options.get.isJson, "Print them as the web API does")
        .several("NAME", Words::Names, options.get.names, true);
    all.emplace_back(
           "set", "Check all values, then store all or none", [&] { return onDevice(set, options.set); })
        .several("NAME=VALUE", Words::Assignments, options.set.assignments, true);
    all.emplace_back("watch", "Print a line for each change", [&] { return onDevice(watch, options.watch); })
        .flag("json", options.watch.isJson, "Print an object for each change")
        .option("for", "TIME", Words::Any, duration(options.watch.duration),
                "End after this time, for example 500ms, 10s, 2h")
        .option("until", "NAME=VALUE", Words::Assignments, options.watch.until,
                "End with status 0 when NAME=VALUE holds, with 1 if it does not hold before the end")
        .several("PATTERN", Words::Names, options.watch.patterns);
}

void addRecordingCommands(std::vector<Command>& all, Options& options) {
    all.emplace_back(
           "record", "Write the values and their changes to a file",
           [&] { return onDevice(record, options.record); })
        .option("for", "TIME", Words::Any, duration(options.record.duration),
                "End after this time, for example 10s, 2h")
        .flag("force", options.record.isForced, "Replace an existing file")
        .required("FILE", Words::Files, options.record.file)
        .several("PATTERN", Words::Names, options.record.patterns);
    all.emplace_back("replay", "Store and post what was recorded",
                     [&] { return onDevice(replay, options.replay); })
        .option(
            "speed", "FACTOR", Words::Any,
            [&](const std::string& text) { options.replay.speed = speedFromText(text); },
            "Times as fast as recorded, for example 10 or 0.5")
        .option("from", "TIME", Words::Any, duration(options.replay.from),
                "Begin with the values of this time of the recording, for example 1.5m")
        .option("to", "TIME", Words::Any, duration(options.replay.to), "End at this time of the recording")
        .flag("loop", options.replay.isLoop, "Begin again at the end")
        .flag("yes", options.replay.isConfirmed, "Store on a real device, too")
        .required("FILE", Words::Files, options.replay.file);
}

void addSnapshotCommands(std::vector<Command>& all, Options& options) {
    all.emplace_back(
           "snapshot", "Write the present values to a file",
           [&] { return onDevice(snapshot, options.snapshot); })
        .flag("force", options.snapshot.isForced, "Replace an existing file")
        .required("FILE", Words::Files, options.snapshot.file)
        .several("PATTERN", Words::Names, options.snapshot.patterns);
    all.emplace_back(
           "diff", "Print what differs from a snapshot", [&] { return diffOnDevice(options.diff); })
        .required("FILE", Words::Files, options.diff.file)
        .optional("FILE", Words::Files, options.diff.other);
    all.emplace_back("restore", "Store the values of a snapshot that differ",
                     [&] { return onDevice(restore, options.restore); })
        .flag("dry-run", options.restore.isPreview, "Print what would be stored and what is refused")
        .flag("yes", options.restore.isConfirmed, "Store without a question")
        .required("FILE", Words::Files, options.restore.file)
        .several("PATTERN", Words::Names, options.restore.patterns);
}

} // namespace

int main(int argc, char** argv) {
    logWriter().setDevice("/dev/null"); // its messages are for the terminal, not for the device's log
    try {
        Options options;
        std::vector<Command> all;
        addValueCommands(all, options);
        addRecordingCommands(all, options);
        addSnapshotCommands(all, options);
        std::vector<std::string> words;
        all.emplace_back("complete", "Print what the last word can become (for the shell)",
                         [&] { return complete(all, words); })
            .several("WORD", Words::Any, words);
        const int status = runCommand(all, {argv + std::min(argc, 1), argv + argc}, VERSIONS);
        flushOutput();
        return status;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "variables: %s\n", withoutPlace(error.what()).c_str());
        return 1;
    }
}
