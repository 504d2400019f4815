#include "apps/common/diagnostics/logwriter.h"
#include "apps/variables/clock.h"
#include "apps/variables/command.h"
#include "apps/variables/commands.h"
#include "apps/variables/completion.h"
#include "gen/code/gen.h"
#include "gen/code/memories.h"

#include <cstdio>
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

int complete(const std::vector<Command>& commands, const std::vector<std::string>& words) {
    for (const std::string& text : completions(commands, words))
        std::puts(text.c_str());
    return 0;
}

// What the command line gives to the commands.
struct Options {
    ListOptions list;
    GetOptions get;
    SetOptions set;
    WatchOptions watch;
};

std::vector<Command> commands(Options& options) {
    std::vector<Command> all;
    all.emplace_back(
           "list", "List names, types, bounds and values", [&] { return onDevice(list, options.list); })
        .flag("json", options.list.isJson, "Print an array of objects")
        .flag("long", options.list.isLong, "Also event id, place and size in the memory, and entries")
        .several("PATTERN", Words::Names, options.list.patterns);
    all.emplace_back(
           "get", "Print values, each on a line", [&] { return onDevice(get, options.get); })
        .flag("json", options.get.isJson, "Print them as the web API does")
        .several("NAME", Words::Names, options.get.names, true);
    all.emplace_back(
           "set", "Check all values, then store all or none", [&] { return onDevice(set, options.set); })
        .several("NAME=VALUE", Words::Assignments, options.set.assignments, true);
    all.emplace_back("watch", "Print a line for each change", [&] { return onDevice(watch, options.watch); })
        .flag("json", options.watch.isJson, "Print an object for each change")
        .option(
            "for", "TIME", Words::Any,
            [&](const std::string& text) { options.watch.duration = durationFromText(text); },
            "End after this time, for example 500ms, 10s, 2h")
        .option("until", "NAME=VALUE", Words::Assignments, options.watch.until,
                "End with status 0 when NAME=VALUE holds, with 1 if it does not hold before the end")
        .several("PATTERN", Words::Names, options.watch.patterns);
    return all;
}

} // namespace

int main(int argc, char** argv) {
    logWriter().setDevice("/dev/null"); // its messages are for the terminal, not for the device's log
    try {
        Options options;
        std::vector<Command> all = commands(options);
        std::vector<std::string> words;
        all.emplace_back("complete", "Print what the last word can become (for the shell)",
                         [&] { return complete(all, words); })
            .several("WORD", Words::Any, words);
        return runCommand(all, {argv + std::min(argc, 1), argv + argc}, VERSIONS);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "variables: %s\n", error.what());
        return 1;
    }
}
