#pragma once

#include "apps/common/introspection/catalogue.h"

#include <iosfwd>
#include <string>

/// What the body of a set request says:
///
///     {"<memory>": {"<variable>": <value>}}
///     {"<memory>": {"<variable>": {"Index": <element>, "<member>": <value>, ...}}}    for a structure
struct SetRequest {
    std::string memory;
    std::string variable;
    JsonObject pairs; ///< the innermost ones: the value is the last, or the members are all of them

    /// A set takes three levels. Each is parsed on its own: without a limit a large body could keep the
    /// service busy.
    static constexpr int MAX_NESTING = 16;

    /// Descends into the last pair of each level as long as that is nested. The first pair of the outermost
    /// level names the memory, the last one of the next level the variable. Returns false with the reason in
    /// `errors`: "JSON parse error at <position>.\r\n", where the position counts in the nested text that
    /// could not be parsed, or "Nested deeper than 16 levels.\r\n".
    bool parse(const std::string& body, std::ostream& errors);

    /// False when there is no pair to set, or only an index.
    bool hasValue() const;

    /// The value of the last "Index" pair, 0 if there is none.
    /// Throws std::invalid_argument or std::out_of_range when it is no number.
    int elementIndex() const;
};
