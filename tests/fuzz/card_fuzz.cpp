#include "apps/libs/lhwinfo/hwinfo.h"
#include "target.h"
#include "tests/unit/hwinfo/image.h"

// The card's block against a literal check of its header, and assignments to parameters. Input: the line of
// an assignment, a byte that says whether the block gets a matching checksum, the register's word, the block.

namespace {

constexpr std::size_t REGISTER = 0x20CC068;
constexpr std::size_t CARD = 0x100000;
constexpr std::uint32_t REGION = 0x10000;
constexpr std::uint32_t SIZE = 348;
constexpr std::uint32_t LONGEST = 1024; // below the region's size; longer ones only take longer

std::uint32_t number(const std::string& block, std::size_t at) {
    std::uint32_t value;
    std::memcpy(&value, block.data() + at, sizeof value);
    return value;
}

void setNumber(std::string& block, std::size_t at, std::uint32_t value) {
    block.replace(at, 4, word(value));
}

// Bit by bit.
std::uint32_t literalChecksum(const std::string& block, std::size_t length) {
    std::uint32_t sum = 0xFFFFFFFF;
    for (std::size_t bit = 12 * 8; bit < length * 8; ++bit) {
        const bool isSet = (static_cast<unsigned char>(block[bit / 8]) >> (7 - bit % 8) & 1) != 0;
        sum = sum << 1 ^ (((sum >> 31) != 0) != isSet ? 0x04C11DB7U : 0U);
    }
    return sum;
}

bool isIntact(const std::string& block) {
    return number(block, 4) <= LONGEST && literalChecksum(block, number(block, 4)) == number(block, 8);
}

// Makes the block one of this layout that keeps its first `kept` bytes.
void renew(std::string& block, std::size_t kept) {
    std::fill(block.begin() + static_cast<std::ptrdiff_t>(kept), block.begin() + SIZE, '\0');
    setNumber(block, 0, HwInfo::MMC_BLOCK_VERSION);
    setNumber(block, 4, SIZE);
    setNumber(block, 8, literalChecksum(block, SIZE));
}

void assign(HwInfo& info, const std::string& assignment) {
    const bool isTaken = info.refusal(assignment).empty();
    try {
        EXPECT_EQ(info.write(assignment), isTaken);
    } catch (const std::runtime_error&) {
        EXPECT_FALSE(isTaken); // private
    }
    const std::string name = assignment.substr(0, assignment.find('='));
    std::string text;
    EXPECT_TRUE(!isTaken || info.read(name.c_str(), text));
    EXPECT_TRUE(!isTaken || info.write(name + "=" + text)); // what was read can be written
    EXPECT_EQ(info.examine(), HwInfo::Content::Valid);
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
    const std::uint32_t length = number(block, 4);
    if (length > LONGEST && length <= REGION)
        return;
    if (isSealed && length <= LONGEST)
        setNumber(block, 8, literalChecksum(block, length));
    card.write(CARD, block);
    HwInfo info(registers.path(), card.path());
    info.initialize();
    if (length < SIZE)
        renew(block, length);
    else if (!isIntact(block))
        renew(block, 12);
    EXPECT_EQ(card.read(CARD, LONGEST), block);
    assign(info, assignment);
}
