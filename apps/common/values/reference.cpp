#include "apps/common/values/reference.h"

#include "apps/common/introspection/structures.h"
#include "apps/common/introspection/valueconversion.h"
#include "apps/common/values/excerpt.h"
#include "apps/common/values/refusal.h"

#include <algorithm>
#include <charconv>
#include <fnmatch.h>

namespace {

using Reason = Refusal::Reason;

constexpr std::size_t SHOWN_BYTES = 100; // of a name; no name is longer

std::string_view ownName(const VariableId& variable) {
    return variable.descriptor().name;
}

struct Variables {
    std::vector<VariableId> inOrder; // the catalogue's
    std::vector<VariableId> byName;  // sorted by their own names, which are unique

    Variables() {
        for (std::uint32_t mem = 0; mem < MEMORY_ARRAY_SIZE; ++mem)
            for (std::uint32_t var = 0; var < MEMORY_ARRAY[mem].count; ++var)
                inOrder.push_back({mem, var});
        byName = inOrder;
        std::sort(byName.begin(), byName.end(),
                  [](const auto& left, const auto& right) { return ownName(left) < ownName(right); });
    }
};

const Variables& allVariables() {
    static const Variables all;
    return all;
}

// A name in pieces: [memory.]variable[element][.member]
struct Pieces {
    std::string_view variable; // with the memory
    std::optional<std::string_view> element;
    std::optional<std::string_view> member;
};

bool isMemory(std::string_view name) {
    return std::any_of(
        MEMORY_ARRAY, MEMORY_ARRAY + MEMORY_ARRAY_SIZE,
        [&](const MemoryDescriptor& memory) { return name == memory.name; });
}

Pieces split(std::string_view name) {
    const std::size_t open = name.find('[');
    const std::size_t close = name.find(']', open);
    if (close != std::string_view::npos && (close + 1 == name.size() || name[close + 1] == '.')) {
        const bool hasMember = close + 1 < name.size();
        return {name.substr(0, open), name.substr(open + 1, close - open - 1),
                hasMember ? std::optional(name.substr(close + 2)) : std::nullopt};
    }
    const std::size_t first = name.find('.');
    const std::size_t end = isMemory(name.substr(0, first)) ? name.find('.', first + 1) : first;
    if (end == std::string_view::npos)
        return {name, std::nullopt, std::nullopt};
    return {name.substr(0, end), std::nullopt, name.substr(end + 1)};
}

bool isNamed(const VariableId& variable, std::string_view name) {
    const std::size_t dot = name.find('.');
    if (dot == std::string_view::npos)
        return name == variable.descriptor().name;
    return name.substr(0, dot) == MEMORY_ARRAY[variable.mem].name &&
           name.substr(dot + 1) == variable.descriptor().name;
}

VariableId findVariable(std::string_view name, const std::string& whole) {
    const std::vector<VariableId>& sorted = allVariables().byName;
    const std::string_view own = name.substr(name.find('.') + 1); // the whole name without a dot
    const auto found =
        std::lower_bound(sorted.begin(), sorted.end(), own,
                         [](const auto& id, std::string_view text) { return ownName(id) < text; });
    if (found == sorted.end() || !isNamed(*found, name))
        throw Refusal(Reason::UnknownVariable, (whole.empty() ? "\"\"" : whole) + " is not a variable");
    return *found;
}

bool isStructureArray(const VariableDescriptor& variable) {
    return variable.baseType == BaseStruct && variable.isArray != 0;
}

std::uint32_t elementOf(const VariableDescriptor& variable, std::string_view text, const std::string& whole) {
    if (!isStructureArray(variable))
        throw Refusal(Reason::NotAnIndex, whole + ": " + variable.name + " is not an array");
    std::uint32_t index = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), index);
    const std::uint32_t count = structureCount(variable);
    if (error != std::errc() || end != text.data() + text.size() || index >= count)
        throw Refusal(Reason::NotAnIndex,
                      whole + ": the index is not between 0 and " + std::to_string(count - 1));
    return index;
}

const MemberDescriptor* memberOf(const Reference& reference, std::string_view name,
                                 const std::string& whole) {
    if (name.empty())
        throw Refusal(Reason::UnknownVariable, whole + ": the name of the member is missing");
    const VariableDescriptor& variable = reference.variable.descriptor();
    const StructureDescriptor* const structure =
        variable.baseType == BaseStruct ? findStructure(variable.type) : nullptr;
    const MemberDescriptor* const member = structure == nullptr ? nullptr : findMember(*structure, name);
    if (member == nullptr)
        throw Refusal(Reason::UnknownVariable,
                      whole + ": " + variable.type + " has no member " + std::string(name));
    if (isStructureArray(variable) && !reference.element)
        throw Refusal(Reason::NotAnIndex, whole + ": the index of the element is missing");
    return member;
}

bool matches(const std::string& pattern, const VariableId& variable) {
    const bool isFull = pattern.find('.') != std::string::npos;
    const std::string name = isFull ? variable.name() : variable.descriptor().name;
    return fnmatch(pattern.c_str(), name.c_str(), 0) == 0;
}

} // namespace

std::string VariableId::name() const {
    return std::string(MEMORY_ARRAY[mem].name) + "." + descriptor().name;
}

Reference Reference::parse(const std::string& name) {
    const Pieces pieces = split(name);
    const std::string shown = excerpt(name, SHOWN_BYTES);
    Reference reference{findVariable(pieces.variable, shown), std::nullopt, nullptr};
    if (pieces.element)
        reference.element = elementOf(reference.variable.descriptor(), *pieces.element, shown);
    if (pieces.member)
        reference.member = memberOf(reference, excerpt(*pieces.member, SHOWN_BYTES), shown);
    return reference;
}

std::string Reference::name() const {
    std::string text = variable.name();
    if (element)
        text += "[" + std::to_string(*element) + "]";
    if (member != nullptr)
        text += std::string(".") + member->name;
    return text;
}

std::vector<Reference> leaves(const VariableId& variable) {
    const VariableDescriptor& descriptor = variable.descriptor();
    if (descriptor.baseType != BaseStruct)
        return {{variable, std::nullopt, nullptr}};
    const StructureDescriptor& structure = *findStructure(descriptor.type);
    std::vector<Reference> found;
    for (std::uint32_t element = 0; element < structureCount(descriptor); ++element)
        for (std::uint32_t i = 0; i < structure.memberCount; ++i)
            found.push_back({variable, isStructureArray(descriptor) ? std::optional(element) : std::nullopt,
                             &structure.members[i]});
    return found;
}

std::vector<VariableId> matchingVariables(const std::vector<std::string>& patterns) {
    if (patterns.empty())
        return allVariables().inOrder;
    std::vector<bool> isMatched(patterns.size());
    std::vector<VariableId> matched;
    for (const VariableId& variable : allVariables().inOrder) {
        bool isWanted = false;
        for (std::size_t i = 0; i < patterns.size(); ++i) {
            if (!matches(patterns[i], variable))
                continue;
            isMatched[i] = true;
            isWanted = true;
        }
        if (isWanted)
            matched.push_back(variable);
    }
    const auto unmatched = std::find(isMatched.begin(), isMatched.end(), false);
    if (unmatched != isMatched.end()) {
        const auto& pattern = patterns[static_cast<std::size_t>(unmatched - isMatched.begin())];
        throw Refusal(Reason::UnknownVariable,
                      excerpt(pattern, SHOWN_BYTES) + " does not match any variable");
    }
    return matched;
}
