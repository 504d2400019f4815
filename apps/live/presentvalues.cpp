#include "apps/live/presentvalues.h"

#include "apps/common/values/readablevalue.h"
#include "apps/live/hash.h"

#include <cstring>

PresentValues::PresentValues() : entries_(EVENT_COUNT) {
    for (const MemoryDescriptor& memory : MEMORY_ARRAY)
        copies_.emplace_back(memory.size);
    for (const VariableId& variable : matchingVariables({})) {
        const VariableNumber number = numberOf(variable);
        entries_[number] = {variable, "\"" + variable.name() + "\":", {}, 0};
        all_.set(number);
    }
}

const std::string& PresentValues::text(VariableNumber number) {
    Entry& entry = entries_[number];
    const VariableDescriptor& variable = entry.variable.descriptor();
    const char* const live = *variable.memory;
    if (live == nullptr)
        return entry.text = "null";
    char* const copy = copies_[entry.variable.mem].data();
    const std::uint32_t at = variable.location;
    if (!entry.text.empty() && std::memcmp(copy + at, live + at, variable.size) == 0)
        return entry.text;
    std::memcpy(copy + at, live + at, variable.size);
    entry.text = readableValue({entry.variable, std::nullopt, nullptr}, copy);
    entry.hash = hashOf(entry.text);
    return entry.text;
}

void PresentValues::append(std::string& out, VariableNumber number) {
    text(number);
    append(out, entries_[number]);
}

void PresentValues::append(std::string& out, const Entry& entry) {
    if (out.back() != '{')
        out += ',';
    out += entry.key;
    out += entry.text;
}

std::uint64_t PresentValues::refresh(const VariableSet& variables) {
    std::uint64_t hash = HASH_BASIS;
    for (VariableNumber number = 0; number < EVENT_COUNT; ++number)
        if (variables[number]) {
            text(number);
            hash = combineHash(combineHash(hash, number), entries_[number].hash);
        }
    return hash;
}

std::string PresentValues::document(const VariableSet& variables) const {
    std::size_t size = 2;
    for (VariableNumber number = 0; number < EVENT_COUNT; ++number)
        if (variables[number])
            size += entries_[number].key.size() + entries_[number].text.size() + 1;
    std::string out;
    out.reserve(size);
    out += '{';
    for (VariableNumber number = 0; number < EVENT_COUNT; ++number)
        if (variables[number])
            append(out, entries_[number]);
    return out += '}';
}
