#pragma once

#include <cstdint>
#include <optional>
#include <string>

/// The body that tells changed variables to everybody who waits, piece by piece in the order of the event
/// ids:
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
/// (the request's own id comes before it). A group ends when another memory's variable comes; a memory whose
/// ids do not follow each other opens a group of the same name again.
class UpdateDocument {
public:
    /// Opens the memory's group unless it is open, and writes the variable's name.
    void beginVariable(unsigned int mem, const std::string& memory, const std::string& variable);

    /// Writes the value's JSON text.
    void addValue(const std::string& value) { variables_ += value; }

    /// Tells that an event's variable could not be reported; what was written of it stays.
    void addError(std::uint32_t eventId, const std::string& reason);

    std::string text() const;

private:
    std::string errors_;
    std::string variables_;
    std::optional<unsigned int> memory_; // the open group's
};
