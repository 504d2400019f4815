#include "apps/libs/lhwinfo/parameters.h"

#include <charconv>

namespace {

constexpr unsigned int WORD_BYTES = sizeof(std::uint32_t);
constexpr unsigned int WORD_BITS = 32;

bool isHexadecimal(const std::string& text) {
    return text.starts_with("0x") || text.starts_with("0X");
}

std::optional<std::uint32_t> parse(const std::string& text) {
    const bool hexadecimal = isHexadecimal(text);
    const char* const begin = text.data() + (hexadecimal ? 2 : 0);
    const char* const end = text.data() + text.size();
    std::uint32_t number = 0;
    const auto [stop, error] = std::from_chars(begin, end, number, hexadecimal ? 16 : 10);
    if (error != std::errc() || stop != end)
        return std::nullopt;
    return number;
}

Block wordOf(Block block, unsigned int bit) {
    return block + std::size_t{bit / WORD_BITS} * WORD_BYTES;
}

ConstBlock wordOf(ConstBlock block, unsigned int bit) {
    return block + std::size_t{bit / WORD_BITS} * WORD_BYTES;
}

std::size_t nextByte(unsigned int bit) {
    return (std::size_t{bit} + 7) / 8;
}

} // namespace

std::string NumberParameter::value(ConstBlock block, unsigned int bit) const {
    return std::to_string(load(block, bit));
}

bool NumberParameter::setValue(Block block, unsigned int bit, const std::string& text) const {
    const std::optional<std::uint32_t> number = parse(text);
    return number && setValue(block, bit, *number);
}

bool NumberParameter::setValue(Block block, unsigned int bit, std::uint32_t number) const {
    if (number > maximum())
        return false;
    store(block, bit, number);
    return load(block, bit) == number;
}

std::optional<std::uint32_t> NumberParameter::number(ConstBlock block, unsigned int bit) const {
    return load(block, bit);
}

std::string NumberParameter::refusal(const std::string& text) const {
    const std::optional<std::uint32_t> number = parse(text);
    if (number && *number <= maximum())
        return "";
    return name() + " takes a number from 0 to " + std::to_string(maximum());
}

std::uint64_t IntParameter::endByte(unsigned int bit) const {
    return std::uint64_t{nextByte(bit)} + WORD_BYTES;
}

std::uint32_t IntParameter::load(ConstBlock block, unsigned int bit) const {
    return loadWord(block + nextByte(bit));
}

void IntParameter::store(Block block, unsigned int bit, std::uint32_t number) const {
    storeWord(block + nextByte(bit), number);
}

std::string StringParameter::value(ConstBlock block, unsigned int bit) const {
    std::string text;
    for (ConstBlock next = block + bit / 8; text.size() < length_ && *next != 0; ++next)
        text.push_back(static_cast<char>(*next));
    return text;
}

bool StringParameter::setValue(Block block, unsigned int bit, const std::string& text) const {
    if (!refusal(text).empty())
        return false;
    const Block field = block + bit / 8;
    for (unsigned int i = 0; i < length_; ++i)
        field[i] = i < text.size() ? static_cast<std::uint8_t>(text[i]) : std::uint8_t{0};
    return true;
}

std::string StringParameter::refusal(const std::string& text) const {
    if (text.size() > length_)
        return name() + " takes at most " + std::to_string(length_) + " bytes";
    return text.find('\0') == std::string::npos ? "" : name() + " takes no zero bytes";
}

std::uint64_t StringParameter::endByte(unsigned int bit) const {
    return std::uint64_t{bit / 8} + length_;
}

std::uint64_t BitsParameter::endByte(unsigned int bit) const {
    if (width_ == 0 || width_ > WORD_BITS - bit % WORD_BITS)
        return NOWHERE;
    return std::uint64_t{bit / WORD_BITS} * WORD_BYTES + WORD_BYTES;
}

std::uint32_t BitsParameter::load(ConstBlock block, unsigned int bit) const {
    return (loadWord(wordOf(block, bit)) >> shift(bit)) & maximum();
}

void BitsParameter::store(Block block, unsigned int bit, std::uint32_t number) const {
    const Block address = wordOf(block, bit);
    const std::uint32_t others = loadWord(address) & ~(maximum() << shift(bit));
    storeWord(address, others | (number << shift(bit)));
}
