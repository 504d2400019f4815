#include "apps/libs/lhwinfo/tool/commands.h"

#include "apps/libs/lhwinfo/hwinfo.h"

#include <algorithm>
#include <iostream>

const char* const USAGE =
    R"(usage: hwinfo print [--all]                   list the values, or all there is with its place
       hwinfo get NAME                        print one value
       hwinfo set NAME=VALUE...               set values
       hwinfo create [--force] [NAME=VALUE...]
                                              make a new block: all zero or empty but what is given
       hwinfo help                            print this

Hardware information of the card /dev/mmcblk1 and of the register in /dev/mem. Numbers are decimal or, behind
0x, hexadecimal. Of several values either all are set or none. create keeps a block that is valid unless
--force is given, and leaves the register but for what is given. The other commands take a valid block; one
of an older layout is grown to the new layout first.

Exit status: 0 done, 1 failed, nothing is changed, 2 not a command line as above. Reasons go to standard error.
)";

namespace {

using Words = std::span<const std::string>;
using Content = HwInfo::Content;

// Takes `option` off the front of `words`. Returns whether it was there.
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
        throw std::runtime_error("The card holds no valid hardware information. \"hwinfo create\" makes it.");
    info.initialize();
}

void requireAcceptable(const HwInfo& info, Words assignments) {
    for (const std::string& assignment : assignments)
        if (const std::string reason = info.refusal(assignment); !reason.empty())
            throw std::runtime_error(reason + ".");
}

void write(HwInfo& info, Words assignments) {
    for (const std::string& assignment : assignments)
        if (!info.write(assignment))
            throw std::runtime_error(assignment + " is not stored.");
    info.flush();
}

void print(Words words) {
    const bool isAll = takeOption(words, "--all");
    if (!words.empty())
        throw UsageError("print takes no \"" + words.front() + "\".");
    HwInfo info = openDevices();
    requireValid(info);
    if (isAll)
        info.printAll(std::cout);
    else
        info.printParameters(std::cout);
}

void get(Words words) {
    if (words.size() != 1)
        throw UsageError("get takes one name.");
    HwInfo info = openDevices();
    requireValid(info);
    std::string value;
    if (!info.read(words.front().c_str(), value))
        throw std::runtime_error(words.front() + " is no parameter.");
    std::cout << value << '\n';
}

void set(Words words) {
    if (words.empty())
        throw UsageError("set takes at least one NAME=VALUE.");
    HwInfo info = openDevices();
    requireValid(info);
    requireAcceptable(info, words);
    write(info, words);
}

void create(Words words) {
    const bool isForced = takeOption(words, "--force");
    HwInfo info = openDevices();
    if (info.examine() != Content::Invalid && !isForced)
        throw std::runtime_error("The card holds valid hardware information. With --force it is replaced.");
    requireAcceptable(info, words);
    info.clear();
    write(info, words);
}

} // namespace

void runCommand(std::span<const std::string> words) {
    if (words.empty())
        throw UsageError("A command is missing.");
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
        throw UsageError("\"" + name + "\" is no command.");
}
