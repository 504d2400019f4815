#include "apps/libs/lhwinfo/hwinfo.h"
#include "target.h"
#include "tests/unit/hwinfo/image.h"

#include <algorithm>

// The card's block, and assignments to parameters. Input: the line of an assignment, a byte that says whether
// the block gets a matching checksum, the register's word, the block.

namespace {

constexpr std::size_t REGISTER = 0x20CC068;
constexpr std::size_t CARD = 0x100000;
constexpr std::uint32_t HEADER = 12;
constexpr std::uint32_t REGION = 0x10000;
constexpr std::ptrdiff_t PARAMETERS = 3 + 14 + 4; // header, card, register
constexpr std::uint32_t LAYOUT = 348;
constexpr std::uint32_t LONGEST = 1024; // below the region's size; longer ones only take longer

// The printed lines of the parameters can be set, and a table has a line for each parameter.
void print(HwInfo& info) {
    std::istringstream lines(printedBy([&] { info.printParameters(); }));
    for (std::string line; std::getline(lines, line);)
        EXPECT_TRUE(line.find("\\x") != std::string::npos || info.refusal(line).empty()) << line;
    const std::string table = printedBy([&] { info.printAll(); });
    EXPECT_EQ(std::count(table.begin(), table.end(), '\n'), 2 + PARAMETERS);
}

void assign(HwInfo& info, const std::string& assignment) {
    const bool isTaken = info.refusal(assignment).empty();
    const std::string name = assignment.substr(0, assignment.find('='));
    std::string text;
    unsigned int number = 0;
    try {
        EXPECT_EQ(info.write(assignment), isTaken);
        const bool isFound = info.read(name.c_str(), text);
        EXPECT_TRUE(!isTaken || (isFound && info.write(name + "=" + text))); // what was read can be written
        const bool isText = isFound && !info.read(name.c_str(), number);
        EXPECT_EQ(info.write(name.c_str(), text.c_str(), LONGEST), isText);
        EXPECT_EQ(info.write(name.c_str(), number), isFound && !isText);
    } catch (const std::runtime_error&) {
        EXPECT_FALSE(isTaken); // private
    }
    if (isTaken)
        print(info);
}

} // namespace

void handle(std::string_view input) {
    static Image registers(REGISTER + 4096);
    static Image card(CARD + REGION);
    const std::string assignment(takeLine(input));
    const bool isSealed = takeNumber<std::uint8_t>(input) % 2 == 1;
    registers.write(REGISTER, word(takeNumber<std::uint32_t>(input)));
    std::string block(take(input, LONGEST));
    block.resize(LONGEST);
    const std::uint32_t version = takeNumber<std::uint32_t>(input = block);
    const std::uint32_t length = takeNumber<std::uint32_t>(input);
    if (length > LONGEST && length <= REGION)
        return;
    const bool isValid = isSealed && length > HEADER && length <= LONGEST;
    const std::string whole = isValid ? validBlock(version, length, block.substr(HEADER)) : block;
    card.write(CARD, block);
    card.write(CARD, whole);
    HwInfo info(registers.path(), card.path());
    const HwInfo::Content before = info.examine();
    const HwInfo::Content expected = length < LAYOUT ? HwInfo::Content::Older : HwInfo::Content::Valid;
    EXPECT_TRUE(!isValid || before == expected);
    info.initialize();
    EXPECT_EQ(info.examine(), HwInfo::Content::Valid);
    const std::size_t kept = isValid ? length - HEADER : 0;
    EXPECT_EQ(card.read(CARD + HEADER, kept), whole.substr(HEADER, kept));
    assign(info, assignment);
    EXPECT_EQ(info.examine(), HwInfo::Content::Valid);
}
