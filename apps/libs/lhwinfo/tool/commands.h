#pragma once

#include "apps/libs/lhwinfo/hwinfo.h"

#include <span>
#include <stdexcept>
#include <string>

/// An invalid command line; what() is the reason, in one line.
class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

extern const char* const USAGE;

/// Sets parameters from "<name>=<value>" and waits until the card holds them. Throws std::runtime_error with
/// the reason: "<reason>." of HwInfo::refusal, with nothing changed; or "The device does not store
/// <assignment>: <name> is <value>.", with the assignments before it stored. REQUIRES: the card holds a valid
/// block.
void setValues(HwInfo& info, std::span<const std::string> assignments);

/// Runs the command named by the first word on the device's card and register; the other words are its
/// arguments. Listings go to standard output. Throws UsageError, and std::runtime_error with the reason if
/// the command fails; nothing is changed then, except as setValues says. A damaged block is reported and left
/// as it is; only the services clear it when they start.
void runCommand(std::span<const std::string> words);
