#pragma once

#include <iosfwd>
#include <string>
#include <vector>

/// The JSON texts of all variables, printed again only where the memories' bytes have changed.
///
/// A value's text depends on its bytes alone, and few of them change between two requests: so a copy of every
/// memory is kept beside the texts that were printed from it. A variable is compared with its copy, copied if
/// it differs, and printed from the copy: a value that another process writes meanwhile cannot make text and
/// copy disagree. A text that reports an invalid value is printed each time, so that each reading is logged.
class VariableTree {
public:
    VariableTree();

    /// Writes the whole tree with the present values, "<memory>" : {"<variable>" : <value>,...},... without
    /// outer braces, as one text: it is sent with one system call.
    void print(std::ostream& out);

    /// One variable's value. The reference is valid until the next call.
    /// Throws std::runtime_error "Index exceeds limit".
    const std::string& variable(unsigned int mem, unsigned int var);

private:
    struct Variable {
        std::string text;
        bool isPrinted = false; // from the bytes in the copy
    };
    struct Memory {
        std::vector<char> copy;
        std::vector<Variable> variables;
        bool isPrinted = false; // all variables are
        std::string text;       // of all variables; empty when one of them has changed
    };

    const std::string& memoryText(unsigned int mem);
    void refreshMemory(unsigned int mem);
    void refreshVariable(unsigned int mem, unsigned int var);

    std::vector<Memory> memories_;
    std::string text_; // of all memories; empty when a variable has changed
};
