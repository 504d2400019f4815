#pragma once

#include <cstdint>
#include <optional>
#include <string>

/// The body that reports changed variables to all waiting requests, built in the order of the event ids:
///
///     "errors": [],\r\n
///     "variables": {\r\n
///       "<memory>" : {\r\n
///         "<variable>" : <value>, \r\n
///         "<variable>" : <value>\r\n
///       }\r\n
///     }\r\n
///     }\r\n
///
/// (the request's own id comes before it). A group ends when a variable of another memory follows; a memory
/// whose ids are not consecutive gets several groups of the same name.
class UpdateDocument {
public:
    /// Opens the memory's group unless it is open, and writes the variable's name.
    void beginVariable(unsigned int mem, const std::string& memory, const std::string& variable);

    /// Writes the value's JSON text.
    void addValue(const std::string& value) { variables_ += value; }

    /// Reports an event whose variable could not be printed; text written for it stays.
    void addError(std::uint32_t eventId, const std::string& reason);

    std::string text() const;

private:
    std::string errors_;
    std::string variables_;
    std::optional<unsigned int> memory_; // the open group's
};
