#include "apps/variables/completion.h"

#include "apps/common/introspection/structures.h"
#include "apps/common/introspection/valueconversion.h"
#include "apps/common/values/check.h"
#include "apps/common/values/reference.h"
#include "apps/common/values/refusal.h"

#include <algorithm>

namespace {

using Texts = std::vector<std::string>;

Texts withPrefix(const std::string& prefix, const Texts& texts) {
    Texts found;
    for (const std::string& text : texts)
        found.push_back(prefix + text);
    return found;
}

std::optional<Reference> referenceOf(const std::string& name) {
    try {
        return Reference::parse(name);
    } catch (const Refusal&) {
        return std::nullopt;
    }
}

Texts members(const std::string& name) {
    const std::optional<Reference> reference = referenceOf(name);
    if (!reference || reference->member != nullptr || reference->variable.descriptor().baseType != BaseStruct)
        return {};
    const StructureDescriptor& structure = *findStructure(reference->variable.descriptor().type);
    Texts found;
    for (std::uint32_t i = 0; i < structure.memberCount; ++i)
        found.emplace_back(structure.members[i].name);
    return found;
}

// Of an array, "LensFileList[0]", "LensFileList[1]"...
Texts elements(const std::string& name) {
    const std::optional<Reference> reference = referenceOf(name);
    if (!reference || reference->variable.descriptor().baseType != BaseStruct ||
        reference->variable.descriptor().isArray == 0)
        return {};
    Texts found;
    for (std::uint32_t i = 0; i < structureCount(reference->variable.descriptor()); ++i)
        found.push_back(std::string(name).append("[").append(std::to_string(i)).append("]"));
    return found;
}

Texts names(const std::string& start) {
    const std::size_t open = start.find('[');
    if (open != std::string::npos && start.find(']') == std::string::npos)
        return elements(start.substr(0, open));
    if (start.ends_with(']'))
        return withPrefix(start + ".", members(start));
    const std::size_t dot = start.rfind('.');
    Texts found = dot == std::string::npos
                      ? Texts()
                      : withPrefix(start.substr(0, dot + 1), members(start.substr(0, dot)));
    if (dot == std::string::npos)
        for (const MemoryDescriptor& memory : MEMORY_ARRAY)
            found.push_back(std::string(memory.name) + ".");
    for (const VariableId& variable : matchingVariables({}))
        if (dot != std::string::npos)
            found.push_back(variable.name());
        else if (!start.empty())
            found.emplace_back(variable.descriptor().name);
    return found;
}

Texts values(const Reference& reference) {
    const Acceptance acceptance = reference.member == nullptr ? Acceptance::ofVariable(reference.variable)
                                                              : Acceptance::ofMember(*reference.member);
    if (acceptance.baseType == BaseBool)
        return {"false", "true"};
    if (acceptance.enumeration == nullptr)
        return {};
    return {acceptance.enumeration->entries,
            acceptance.enumeration->entries + acceptance.enumeration->entryCount};
}

Texts assignments(const std::string& start) {
    const std::size_t equals = start.find('=');
    if (equals != std::string::npos) {
        const std::optional<Reference> reference = referenceOf(start.substr(0, equals));
        return reference ? withPrefix(start.substr(0, equals + 1), values(*reference)) : Texts();
    }
    Texts found = names(start);
    for (std::string& name : found)
        name += name.back() == '.' || name.back() == ']' ? "" : "=";
    return found;
}

Texts candidates(Words words, const std::string& start) {
    switch (words) {
    case Words::Names:
        return names(start);
    case Words::Assignments:
        return assignments(start);
    default:
        return {};
    }
}

const Command::Option* findOption(const Command& command, const std::string& word) {
    const auto& options = command.options();
    const auto found = std::find_if(options.begin(), options.end(), [&](const auto& option) {
        return word == "--" + std::string(option.name);
    });
    return found == options.end() ? nullptr : &*found;
}

Texts optionNames(const Command& command) {
    Texts found{"--help", "--usage"};
    for (const Command::Option& option : command.options())
        found.push_back("--" + std::string(option.name));
    return found;
}

// An option as "--name=value", or the options' names.
Texts option(const Command& command, const std::string& start) {
    const std::size_t equals = start.find('=');
    const Command::Option* const option = findOption(command, start.substr(0, equals));
    if (equals == std::string::npos || option == nullptr)
        return optionNames(command);
    return withPrefix(start.substr(0, equals + 1), candidates(option->words, start.substr(equals + 1)));
}

// `words` after the command's name.
Texts wordOf(const Command& command, const Texts& words) {
    std::size_t arguments = 0;
    const Command::Option* open = nullptr; // the option whose value the next word is
    for (std::size_t i = 0; i + 1 < words.size(); ++i) {
        const Command::Option* const option = open == nullptr ? findOption(command, words[i]) : nullptr;
        if (open == nullptr && !words[i].starts_with("--"))
            ++arguments;
        open = option != nullptr && option->form != nullptr ? option : nullptr;
    }
    if (open != nullptr)
        return candidates(open->words, words.back());
    if (words.back().starts_with('-'))
        return option(command, words.back());
    const Command::Argument* const argument = command.argument(arguments);
    return argument == nullptr ? Texts() : candidates(argument->words, words.back());
}

Texts firstWords(const std::vector<Command>& commands, const std::string& start) {
    if (start.starts_with('-'))
        return {"--help", "--usage", "--version"};
    Texts found;
    for (const Command& command : commands)
        found.emplace_back(command.name());
    return found;
}

} // namespace

Texts completions(const std::vector<Command>& commands, const Texts& words) {
    if (words.empty())
        return {};
    Texts found;
    if (words.size() == 1)
        found = firstWords(commands, words[0]);
    else if (const Command* const command = findCommand(commands, words[0]))
        found = wordOf(*command, {words.begin() + 1, words.end()});
    std::erase_if(found, [&](const std::string& text) { return !text.starts_with(words.back()); });
    return found;
}
