#include "apps/web/service/variables/variabletree.h"

#include "apps/common/introspection/catalogue.h"
#include "apps/common/introspection/introspection.h"
#include "apps/common/sharedmemory/samebytes.h"
#include "apps/common/values/variablejson.h"

#include <algorithm>
#include <cstring>
#include <ostream>

VariableTree::VariableTree() {
    for (const MemoryDescriptor& memory : MEMORY_ARRAY)
        memories_.push_back({std::vector<char>(memory.size), std::vector<Variable>(memory.count), false, {}});
}

void VariableTree::print(std::ostream& out) {
    for (unsigned int mem = 0; mem < memories_.size(); ++mem)
        refreshMemory(mem);
    if (text_.empty())
        for (unsigned int mem = 0; mem < memories_.size(); ++mem)
            text_.append(mem > 0 ? "," : "").append(memoryText(mem));
    out << text_;
}

const std::string& VariableTree::variable(unsigned int mem, unsigned int var) {
    Introspection::getVarName(mem, var); // checks the indexes
    refreshVariable(mem, var);
    return memories_[mem].variables[var].text;
}

const std::string& VariableTree::memoryText(unsigned int mem) {
    Memory& memory = memories_[mem];
    if (!memory.text.empty())
        return memory.text;
    memory.text.append("\"").append(Introspection::getMemName(mem)).append("\" : {");
    for (unsigned int var = 0; var < memory.variables.size(); ++var) {
        memory.text.append(var > 0 ? ",\"" : "\"").append(Introspection::getVarName(mem, var));
        memory.text.append("\" : ").append(memory.variables[var].text);
    }
    return memory.text += '}';
}

void VariableTree::refreshMemory(unsigned int mem) {
    Memory& memory = memories_[mem];
    const char* live = *MEMORY_ARRAY[mem].basePointer;
    if (memory.isPrinted && live != nullptr && sameBytes(memory.copy.data(), live, memory.copy.size()))
        return;
    for (unsigned int var = 0; var < memory.variables.size(); ++var)
        refreshVariable(mem, var);
    memory.isPrinted = std::all_of(memory.variables.begin(), memory.variables.end(),
                                   [](const Variable& variable) { return variable.isPrinted; });
}

void VariableTree::refreshVariable(unsigned int mem, unsigned int var) {
    const VariableDescriptor& descriptor = MEMORY_ARRAY[mem].variables[var];
    Memory& memory = memories_[mem];
    Variable& variable = memory.variables[var];
    const char* live = *descriptor.memory;
    if (live != nullptr) {
        const std::uint32_t at = descriptor.location;
        if (variable.isPrinted && std::memcmp(memory.copy.data() + at, live + at, descriptor.size) == 0)
            return;
        std::memcpy(memory.copy.data() + at, live + at, descriptor.size);
    }
    variable.text.clear();
    appendVariable(variable.text, mem, var, live == nullptr ? nullptr : memory.copy.data());
    variable.isPrinted = live != nullptr && variable.text.find("INVALID_VALUE:") == std::string::npos;
    memory.isPrinted = memory.isPrinted && variable.isPrinted;
    memory.text.clear();
    text_.clear();
}
