#pragma once

#include <stdexcept>
#include <string>

/// A name or a value that a client gave is refused. what() is a sentence for people that begins with the name
/// and ends without a full stop; code() is for programs.
class Refusal : public std::runtime_error {
public:
    enum class Reason {
        UnknownVariable, ///< "unknown-variable": also a structure's member that does not exist
        NotAnIndex,      ///< "not-an-index": no such element, or the variable is not an array
        WrongType,       ///< "wrong-type"
        OutOfBounds,     ///< "out-of-bounds"
        TooLong,         ///< "too-long": a text, a buffer or an array
        NotAnEntry,      ///< "not-an-entry" of the enumeration
    };

    Refusal(Reason reason, const std::string& text) : std::runtime_error(text), reason_(reason) {}

    const char* code() const {
        static constexpr const char* CODES[] = {"unknown-variable", "not-an-index", "wrong-type",
                                                "out-of-bounds",    "too-long",     "not-an-entry"};
        return CODES[static_cast<int>(reason_)];
    }

private:
    Reason reason_;
};
