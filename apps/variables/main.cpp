#include "apps/common/diagnostics/logwriter.h"
#include "apps/variables/clock.h"
#include "apps/variables/commands.h"
#include "gen/code/gen.h"
#include "gen/code/memories.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <exception>
#include <functional>

void processPreInit() {}
void processPostInit() {}

namespace {

constexpr const char* PATTERN_HELP = "names with * and ?, such as 'MemMotors.*'; all variables without one";

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

// Reads the command line and runs its command.
class CommandLine {
public:
    CommandLine() {
        app_.require_subcommand(1);
        app_.set_version_flag("--version", "variables " VERSION "\ncatalogue " CATALOGUE_HASH);
        addList();
        addGet();
        addSet();
        addWatch();
    }
    CommandLine(const CommandLine&) = delete;
    CommandLine& operator=(const CommandLine&) = delete;

    // Returns the exit status: 2 for an invalid command line, else the command's.
    int run(int argc, char** argv) {
        try {
            app_.parse(argc, argv);
        } catch (const CLI::ParseError& error) {
            return app_.exit(error) == 0 ? 0 : 2;
        }
        if (command_ == nullptr)
            return 0; // --help or --version
        openDevice();
        return command_();
    }

private:
    // `action` is called with the options when the whole command line has been read.
    template <typename Options>
    CLI::App* add(const char* name, const char* about, int (*action)(const Options&),
                  const Options& options) {
        CLI::App* const command = app_.add_subcommand(name, about);
        command->callback(
            [this, action, &options] { command_ = [action, &options] { return action(options); }; });
        return command;
    }

    void addList() {
        CLI::App* const command = add("list", "List names, types, bounds and values", list, list_);
        command->add_option("pattern", list_.patterns, PATTERN_HELP);
        command->add_flag("--json", list_.isJson, "Print an array of objects");
        command->add_flag("--long", list_.isLong, "Also event id, place and size in the memory, and entries");
    }

    void addGet() {
        CLI::App* const command = add("get", "Print values, each on a line", get, get_);
        command->add_option("name", get_.names, "variables, elements, members, or names with * and ?")
            ->required();
        command->add_flag("--json", get_.isJson, "Print them as the web API does");
    }

    void addSet() {
        CLI::App* const command = add("set", "Check all values, then store all or none", set, set_);
        command->add_option("assignment", set_.assignments, "NAME=VALUE")->required();
    }

    void addWatch() {
        CLI::App* const command = add("watch", "Print a line for each change", watch, watch_);
        command->add_option("pattern", watch_.patterns, PATTERN_HELP);
        command->add_flag("--json", watch_.isJson, "Print an object for each change");
        command->add_option_function<std::string>(
            "--for", [this](const std::string& text) { watch_.duration = durationOf(text); },
            "End after this time, for example 500ms, 10s, 2h");
        command->add_option(
            "--until", watch_.until,
            "End with status 0 when NAME=VALUE holds, with 1 if it does not hold before the end");
    }

    static std::chrono::milliseconds durationOf(const std::string& text) {
        try {
            return durationFromText(text);
        } catch (const std::invalid_argument& error) {
            throw CLI::ValidationError("--for", error.what());
        }
    }

    CLI::App app_{"Reads, sets and watches the variables of the device.", "variables"};
    std::function<int()> command_;
    ListOptions list_;
    GetOptions get_;
    SetOptions set_;
    WatchOptions watch_;
};

} // namespace

int main(int argc, char** argv) {
    logWriter().setDevice("/dev/null"); // its messages are for the terminal, not for the device's log
    try {
        return CommandLine().run(argc, argv);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "variables: %s\n", error.what());
        return 1;
    }
}
