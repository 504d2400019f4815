#include "apps/web/service/variabletree.h"

#include "apps/common/introspection/catalogue.h"
#include "apps/common/introspection/introspection.h"
#include "apps/web/service/variabletext.h"

#include <algorithm>
#include <cstring>

VariableTree::VariableTree() {
    for (const MemoryDescriptor& memory : MEMORY_ARRAY)
        memories_.push_back({std::vector<char>(memory.size), std::vector<Variable>(memory.count), false});
}

const std::string& VariableTree::text() {
    bool isChanged = tree_.empty();
    for (unsigned int mem = 0; mem < Introspection::getMemCount(); ++mem)
        isChanged = refreshMemory(mem) || isChanged;
    if (isChanged)
        join();
    return tree_;
}

const std::string& VariableTree::variable(unsigned int mem, unsigned int var) {
    Introspection::getVarName(mem, var); // checks the indexes
    if (refreshVariable(mem, var))
        tree_.clear();
    return memories_[mem].variables[var].text;
}

bool VariableTree::refreshMemory(unsigned int mem) {
    Memory& memory = memories_[mem];
    const char* live = *MEMORY_ARRAY[mem].basePointer;
    if (memory.isPrinted && live != nullptr && std::memcmp(memory.copy.data(), live, memory.copy.size()) == 0)
        return false;
    bool isChanged = false;
    for (unsigned int var = 0; var < memory.variables.size(); ++var)
        isChanged = refreshVariable(mem, var) || isChanged;
    memory.isPrinted = std::all_of(memory.variables.begin(), memory.variables.end(),
                                   [](const Variable& variable) { return variable.isPrinted; });
    return isChanged;
}

bool VariableTree::refreshVariable(unsigned int mem, unsigned int var) {
    const VariableDescriptor& descriptor = MEMORY_ARRAY[mem].variables[var];
    Variable& variable = memories_[mem].variables[var];
    char* copy = memories_[mem].copy.data();
    const char* live = *descriptor.memory;
    if (live != nullptr) {
        const std::uint32_t at = descriptor.location;
        if (variable.isPrinted && std::memcmp(copy + at, live + at, descriptor.size) == 0)
            return false;
        std::memcpy(copy + at, live + at, descriptor.size);
    }
    variable.text.clear();
    appendVariable(variable.text, mem, var, live == nullptr ? nullptr : copy);
    variable.isPrinted = live != nullptr && variable.text.find("INVALID_VALUE:") == std::string::npos;
    memories_[mem].isPrinted = memories_[mem].isPrinted && variable.isPrinted;
    return true;
}

void VariableTree::join() {
    tree_.clear();
    for (unsigned int mem = 0; mem < memories_.size(); ++mem) {
        tree_.append(mem > 0 ? "," : "").append("\"").append(Introspection::getMemName(mem)).append("\" : {");
        for (unsigned int var = 0; var < memories_[mem].variables.size(); ++var) {
            tree_.append(var > 0 ? "," : "").append("\"").append(Introspection::getVarName(mem, var));
            tree_.append("\" : ").append(memories_[mem].variables[var].text);
        }
        tree_ += '}';
    }
}
