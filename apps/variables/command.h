#pragma once

#include <argp.h>
#include <functional>
#include <string>
#include <vector>

/// How the shell completes a word.
enum class Words {
    Any,         ///< not at all
    Names,       ///< names of variables
    Assignments, ///< NAME=VALUE
    Files,
};

/// One command with its options and arguments, which are read into variables of the caller. The texts and the
/// variables must outlive it.
class Command {
public:
    /// Takes a text of the command line. Throws std::invalid_argument with a text for people if it is
    /// invalid.
    using Store = std::function<void(const std::string& text)>;

    struct Option {
        const char* name;
        const char* form; ///< of its value, null for a flag
        Words words;
        const char* about;
        Store store;
    };
    struct Argument {
        const char* form; ///< "FILE"
        Words words;
        bool isRequired;
        bool isRepeated;
        Store store;
    };

    /// `action` returns the exit status. `about` is a line for people.
    Command(const char* name, const char* about, std::function<int()> action);

    /// Adds an option without a value: "--name".
    Command& flag(const char* name, bool& target, const char* about);

    /// Adds an option with a value: "--name=value" or "--name value".
    Command& option(const char* name, const char* form, Words words, Store store, const char* about);
    Command& option(const char* name, const char* form, Words words, std::string& target, const char* about);

    /// Adds the next argument: one that must be there, one that may be there, or all that follow.
    Command& required(const char* form, Words words, std::string& target);
    Command& optional(const char* form, Words words, std::string& target);
    Command& several(const char* form, Words words, std::vector<std::string>& targets,
                     bool isRequired = false);

    const char* name() const { return name_; }
    const char* about() const { return about_; }
    const std::vector<Option>& options() const { return options_; }

    /// The argument that the word after `count` others is; null if the command takes no more.
    const Argument* argument(std::size_t count) const;

    /// Reads the words after the command's name. Ends the process after --help, and with status 2 and a
    /// message if the words are invalid.
    void parse(std::vector<std::string> words) const;

    int run() const { return action_(); }

private:
    static error_t receive(int key, char* text, argp_state* state);
    bool take(int key, const char* text, argp_state* state) const;
    void require(argp_state* state) const;
    std::vector<argp_option> argpOptions() const;
    std::string form() const;

    const char* name_;
    const char* about_;
    std::function<int()> action_;
    std::vector<Option> options_;
    std::vector<Argument> arguments_;
};

/// Null if no command has the name. Belongs to `commands`.
const Command* findCommand(const std::vector<Command>& commands, const std::string& name);

/// Reads the program's options and runs the command that the first argument names. Returns its exit status.
/// Ends the process after --help and --version (`version`), and with status 2 and a message if the command
/// line is invalid.
int runCommand(const std::vector<Command>& commands, const std::vector<std::string>& words,
               const char* version);
