#include "apps/live/presentvalues.h"

#include "apps/live/readablevalue.h"

#include <cstring>

PresentValues::PresentValues() : entries_(EVENT_COUNT) {
    for (const MemoryDescriptor& memory : MEMORY_ARRAY)
        copies_.emplace_back(memory.size);
    for (const VariableId& variable : matchingVariables({})) {
        const VariableNumber number = numberOf(variable);
        entries_[number] = {variable, "\"" + variable.name() + "\":", {}};
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
    return entry.text = readableValue({entry.variable, std::nullopt, nullptr}, copy);
}

void PresentValues::append(std::string& out, VariableNumber number) {
    if (out.back() != '{')
        out += ',';
    out += key(number);
    out += text(number);
}
