#pragma once

#include "apps/common/introspection/catalogue.h"

#include <iosfwd>
#include <string>

/// The content of a set request's body:
///
///     {"<memory>": {"<variable>": <value>}}
///     {"<memory>": {"<variable>": {"Index": <element>, "<member>": <value>, ...}}}    for a structure
struct SetRequest {
    std::string memory;
    std::string variable;
    JsonObject pairs; ///< of the innermost level: the value is the last pair, or the members are all pairs

    /// A set request has three levels. Each is parsed on its own: without a limit a large body could block
    /// the service.
    static constexpr int MAX_NESTING = 16;

    /// Descends into the last pair of each level as long as that is nested. The first pair of the outermost
    /// level names the memory, the last one of the next level the variable. Returns false with the reason in
    /// `errors`: "JSON parse error at <position>.\r\n", where the position counts in the nested text that
    /// could not be parsed, or "Nested deeper than 16 levels.\r\n".
    bool parse(const std::string& body, std::ostream& errors);

    /// False when there is no pair to set, or only an index.
    bool hasValue() const;

    /// The value of the last "Index" pair, 0 if there is none.
    /// Throws std::invalid_argument or std::out_of_range when it is not a number.
    int elementIndex() const;

    /// Passes the value to the variable's setter. Returns true when the variable exists, even if the setter
    /// refuses the value: the client reads the variable back. Returns false, with nothing changed, when there
    /// is no such variable, the index is not a number or the broker is gone.
    bool apply() const;
};
