#pragma once

#include "apps/common/values/reference.h"
#include "apps/live/variableset.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

/// The values of all variables as JSON texts, printed again only when the variable's bytes have changed. A
/// changed variable is copied first and printed from the copy, so that text and copy agree even while another
/// process writes.
class PresentValues {
public:
    /// Prints nothing yet.
    PresentValues();

    /// The present value in the form of readablevalue.h. The reference is valid until the next call.
    /// REQUIRES: all()[number].
    const std::string& text(VariableNumber number);

    /// `"<memory>.<variable>":`. REQUIRES: all()[number].
    const std::string& key(VariableNumber number) const { return entries_[number].key; }

    /// Appends key and text, with a comma in front unless `out` ends with an opening brace.
    void append(std::string& out, VariableNumber number);

    /// Brings the texts up to date and returns a hash of them.
    std::uint64_t refresh(const VariableSet& variables);

    /// The object of the variables with their texts as they were at the last refresh().
    std::string document(const VariableSet& variables) const;

    /// The numbers of the catalogue's variables.
    const VariableSet& all() const { return all_; }

    static VariableNumber numberOf(const VariableId& variable) { return variable.descriptor().event.id; }

private:
    struct Entry {
        VariableId variable;
        std::string key;
        std::string text; // empty until it is printed
        std::uint64_t hash = 0;
    };

    static void append(std::string& out, const Entry& entry);

    std::vector<Entry> entries_; // by number
    std::vector<std::vector<char>> copies_;
    VariableSet all_;
};
