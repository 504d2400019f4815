#include "apps/libs/lhwinfo/tool/commands.h"

#include <algorithm>
#include <iostream>

const char* const USAGE =
    R"(usage: hwinfo print [--all]                   list the values; --all: all parameters with their places
       hwinfo get NAME                        print one value
       hwinfo set NAME=VALUE...               set values
       hwinfo create [--force] [NAME=VALUE...]
                                              create a block of zero and empty values, except those given
       hwinfo help                            print this text

Hardware information on the card /dev/mmcblk1 and in the register in /dev/mem. Numbers are decimal, or
hexadecimal with the prefix 0x. If one of several values is invalid, none is set. create replaces a valid block
only with --force and sets in the register only the given values. The other commands need a valid block; they
extend a block of an older layout to the new layout first.

Exit status: 0 success; 1 failure, nothing is changed, unless the message says that the device does not store a
value: then the values before it are set; 2 invalid command line. Error messages go to standard error.
)";

namespace {

using Words = std::span<const std::string>;
using Content = HwInfo::Content;

// Removes `option` from the front of `words`. Returns whether it was there.
bool takeOption(Words& words, const char* option) {
    if (words.empty() || words.front() != option)
        return false;
    words = words.subspan(1);
    return true;
}

HwInfo openDevices() {
    try {
        return HwInfo();
    } catch (const std::exception& error) {
        const std::string reason = error.what();
        throw std::runtime_error("Cannot use /dev/mem and /dev/mmcblk1: " +
                                 reason.substr(std::min(reason.find_first_not_of(' '), reason.size())));
    }
}

void requireValid(HwInfo& info) {
    if (info.examine() == Content::Invalid)
        throw std::runtime_error(
            "The card holds no valid hardware information. \"hwinfo create\" creates it.");
    info.initialize();
}

void requireAcceptable(const HwInfo& info, Words assignments) {
    for (const std::string& assignment : assignments)
        if (const std::string reason = info.refusal(assignment); !reason.empty())
            throw std::runtime_error(reason + ".");
}

// "<name> is <value>": what the device holds instead of the value that it did not store.
std::string present(const HwInfo& info, const std::string& assignment) {
    const std::string name = assignment.substr(0, assignment.find('='));
    std::string value;
    info.read(name.c_str(), value);
    return name + " is " + value;
}

void print(Words words) {
    const bool isAll = takeOption(words, "--all");
    if (!words.empty())
        throw UsageError("Unknown argument: " + words.front() + ".");
    HwInfo info = openDevices();
    requireValid(info);
    if (isAll)
        info.printAll();
    else
        info.printParameters();
}

void get(Words words) {
    if (words.size() != 1)
        throw UsageError("get takes one name.");
    HwInfo info = openDevices();
    requireValid(info);
    std::string value;
    if (!info.read(words.front().c_str(), value))
        throw std::runtime_error("Unknown parameter: " + words.front() + ".");
    std::cout << value << '\n';
}

void set(Words words) {
    if (words.empty())
        throw UsageError("set takes at least one NAME=VALUE.");
    HwInfo info = openDevices();
    requireValid(info);
    setValues(info, words);
}

void create(Words words) {
    const bool isForced = takeOption(words, "--force");
    HwInfo info = openDevices();
    if (info.examine() != Content::Invalid && !isForced)
        throw std::runtime_error("The card holds valid hardware information. --force replaces it.");
    requireAcceptable(info, words);
    info.clear();
    setValues(info, words);
}

} // namespace

void setValues(HwInfo& info, std::span<const std::string> assignments) {
    requireAcceptable(info, assignments);
    for (const std::string& assignment : assignments)
        if (!info.write(assignment))
            throw std::runtime_error("The device does not store " + assignment + ": " +
                                     present(info, assignment) + ".");
    info.flush();
}

void runCommand(std::span<const std::string> words) {
    if (words.empty())
        throw UsageError("The command is missing.");
    const std::string& name = words.front();
    const Words arguments = words.subspan(1);
    if (name == "print")
        print(arguments);
    else if (name == "get")
        get(arguments);
    else if (name == "set")
        set(arguments);
    else if (name == "create")
        create(arguments);
    else if (name == "help" || name == "--help")
        std::cout << USAGE;
    else
        throw UsageError("Unknown command: " + name + ".");
}
