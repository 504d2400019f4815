#include "apps/variables/command.h"

#include <algorithm>
#include <stdexcept>

namespace {

constexpr int INVALID_COMMAND_LINE = 2;
constexpr int FIRST_KEY = 0x100; // options have no letters

// The words as argp takes them, after the name that its messages begin with.
std::vector<char*> pointers(std::string& name, std::vector<std::string>& words) {
    std::vector<char*> found{name.data()};
    for (std::string& word : words)
        found.push_back(word.data());
    found.push_back(nullptr);
    return found;
}

void parseWith(const argp& parser, unsigned int flags, std::string name, std::vector<std::string>& words,
               void* input) {
    std::vector<char*> texts = pointers(name, words);
    argp_err_exit_status = INVALID_COMMAND_LINE;
    argp_parse(&parser, static_cast<int>(texts.size()) - 1, texts.data(), flags, nullptr, input);
}

// The command line up to the command.
struct Choice {
    const std::vector<Command>& commands;
    const Command* command = nullptr;
    std::vector<std::string> rest;
};

error_t choose(int key, char* text, argp_state* state) {
    auto& choice = *static_cast<Choice*>(state->input);
    if (key == ARGP_KEY_NO_ARGS)
        argp_error(state, "the command is missing");
    if (key != ARGP_KEY_ARG)
        return ARGP_ERR_UNKNOWN;
    choice.command = findCommand(choice.commands, text);
    if (choice.command == nullptr)
        argp_error(state, "%s is not a command", text);
    choice.rest.assign(state->argv + state->next, state->argv + state->argc);
    state->next = state->argc;
    return 0;
}

std::string overview(const std::vector<Command>& commands) {
    std::string text = "Reads and changes the variables of the device.\n\nCommands:\n";
    for (const Command& command : commands) {
        text += "  " + std::string(command.name());
        text.append(12 - std::string(command.name()).size(), ' ') += std::string(command.about()) + "\n";
    }
    return text + "\n\"variables COMMAND --help\" describes a command.";
}

} // namespace

Command::Command(const char* name, const char* about, std::function<int()> action)
    : name_(name), about_(about), action_(std::move(action)) {}

Command& Command::flag(const char* name, bool& target, const char* about) {
    options_.push_back({name, nullptr, Words::Any, about, [&target](const std::string&) { target = true; }});
    return *this;
}

Command& Command::option(const char* name, const char* form, Words words, Store store, const char* about) {
    options_.push_back({name, form, words, about, std::move(store)});
    return *this;
}

Command& Command::option(const char* name, const char* form, Words words, std::string& target,
                         const char* about) {
    return option(
        name, form, words, [&target](const std::string& text) { target = text; }, about);
}

Command& Command::required(const char* form, Words words, std::string& target) {
    arguments_.push_back({form, words, true, false, [&target](const std::string& text) { target = text; }});
    return *this;
}

Command& Command::optional(const char* form, Words words, std::string& target) {
    arguments_.push_back({form, words, false, false, [&target](const std::string& text) { target = text; }});
    return *this;
}

Command& Command::several(const char* form, Words words, std::vector<std::string>& targets, bool isRequired) {
    arguments_.push_back(
        {form, words, isRequired, true, [&targets](const std::string& text) { targets.push_back(text); }});
    return *this;
}

const Command::Argument* Command::argument(std::size_t count) const {
    if (count < arguments_.size())
        return &arguments_[count];
    return !arguments_.empty() && arguments_.back().isRepeated ? &arguments_.back() : nullptr;
}

void Command::parse(std::vector<std::string> words) const {
    const Command* self = this; // argp takes no constant
    const std::vector<argp_option> options = argpOptions();
    const std::string forms = form();
    const argp parser{options.data(), receive, forms.c_str(), about_, nullptr, nullptr, nullptr};
    parseWith(parser, 0, std::string("variables ") + name_, words, &self);
}

// Exceptions do not pass through the C library.
error_t Command::receive(int key, char* text, argp_state* state) {
    try {
        return (*static_cast<const Command**>(state->input))->take(key, text, state) ? 0 : ARGP_ERR_UNKNOWN;
    } catch (const std::invalid_argument& error) {
        argp_error(state, "%s", error.what());
        return EINVAL;
    }
}

bool Command::take(int key, const char* text, argp_state* state) const {
    if (key == ARGP_KEY_END)
        require(state);
    const std::size_t option = static_cast<std::size_t>(key) - FIRST_KEY;
    if (key >= FIRST_KEY && option < options_.size()) {
        options_[option].store(text == nullptr ? "" : text);
        return true;
    }
    const Argument* const next = key == ARGP_KEY_ARG ? argument(state->arg_num) : nullptr;
    if (next != nullptr)
        next->store(text);
    else if (key == ARGP_KEY_ARG)
        argp_error(state, "%s is one argument too many", text);
    return next != nullptr;
}

void Command::require(argp_state* state) const {
    if (state->arg_num < arguments_.size() && arguments_[state->arg_num].isRequired)
        argp_error(state, "%s is missing", arguments_[state->arg_num].form);
}

std::vector<argp_option> Command::argpOptions() const {
    std::vector<argp_option> found;
    for (const Option& option : options_)
        found.push_back(
            {option.name, FIRST_KEY + static_cast<int>(found.size()), option.form, 0, option.about, 0});
    found.push_back({});
    return found;
}

// "FILE [PATTERN...]"
std::string Command::form() const {
    std::string text;
    for (const Argument& argument : arguments_) {
        const std::string word = argument.form + std::string(argument.isRepeated ? "..." : "");
        text += (text.empty() ? "" : " ") + (argument.isRequired ? word : "[" + word + "]");
    }
    return text;
}

const Command* findCommand(const std::vector<Command>& commands, const std::string& name) {
    const auto found = std::find_if(commands.begin(), commands.end(),
                                    [&](const Command& command) { return command.name() == name; });
    return found == commands.end() ? nullptr : &*found;
}

int runCommand(const std::vector<Command>& commands, const std::vector<std::string>& words,
               const char* version) {
    Choice choice{commands, nullptr, {}};
    const std::string about = overview(commands);
    const argp parser{nullptr, choose, "COMMAND ...", about.c_str(), nullptr, nullptr, nullptr};
    argp_program_version = version;
    std::vector<std::string> copies = words;
    parseWith(parser, ARGP_IN_ORDER, "variables", copies, &choice);
    argp_program_version = nullptr;
    choice.command->parse(choice.rest);
    return choice.command->run();
}
