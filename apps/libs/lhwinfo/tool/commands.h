#pragma once

#include <span>
#include <stdexcept>
#include <string>

/// A command line that is none of the tool's; what() tells why, in one line.
class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

extern const char* const USAGE;

/// Runs the command that the first word names, with the other words as its arguments, on the device's card
/// and register. Listings go to standard output. Throws UsageError, and std::runtime_error with the reason
/// when the command fails; nothing is changed then. A damaged block is told and left as it is: only the
/// services clear it when they start.
void runCommand(std::span<const std::string> words);
