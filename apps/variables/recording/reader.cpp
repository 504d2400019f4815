#include "apps/variables/recording/reader.h"

#include "gen/code/memories.h"

#include <cerrno>
#include <charconv>
#include <cstring>
#include <limits>
#include <stdexcept>

namespace recording {

namespace {

constexpr std::uint64_t LARGEST_TIME = std::numeric_limits<std::int64_t>::max() / 1000; // fits nanoseconds
constexpr std::uint64_t LARGEST_WORD = std::numeric_limits<std::uint32_t>::max();
constexpr std::string_view CATALOGUE = "catalogue ";
constexpr std::string_view STARTED = "started ";

// The size in "NAME KIND SIZE ...".
std::optional<std::uint32_t> sizeOf(const std::string& line) {
    const std::size_t kind = line.find(' ');
    const std::size_t size = line.find(' ', kind == std::string::npos ? kind : kind + 1);
    std::uint32_t number = 0;
    if (size == std::string::npos ||
        std::from_chars(line.data() + size + 1, line.data() + line.size(), number).ec != std::errc())
        return std::nullopt;
    return number;
}

} // namespace

Reader::Reader(const std::string& path) : path_(path), file_(std::fopen(path.c_str(), "rbe")) {
    std::string magic(MAGIC.size(), '\0');
    if (file_ == nullptr)
        fail(std::strerror(errno));
    if (std::fread(magic.data(), 1, magic.size(), file_.get()) != magic.size() || magic != MAGIC)
        fail("this is not a recording of version 1");
    if (!readFrame())
        fail("the description of the recording is truncated or damaged");
    readDescription();
    start_ = std::ftell(file_.get());
    rewind();
}

void Reader::readDescription() {
    const auto known = describedVariables();
    std::string_view text = frame_;
    for (std::size_t end; (end = text.find('\n')) != std::string_view::npos; text.remove_prefix(end + 1)) {
        const std::string line(text.substr(0, end));
        if (line.starts_with(CATALOGUE))
            isOfThisCatalogue_ = line.substr(CATALOGUE.size()) == CATALOGUE_HASH;
        else if (!line.starts_with(STARTED))
            addVariable(line, known);
    }
}

void Reader::addVariable(const std::string& line, const std::map<std::string, VariableId>& known) {
    const std::optional<std::uint32_t> size = sizeOf(line);
    if (!size)
        fail("the recording describes a variable without a size");
    const auto found = known.find(line);
    variables_.push_back({line, *size, std::nullopt, {}});
    if (found != known.end())
        variables_.back().variable = found->second;
}

void Reader::rewind() {
    for (Recorded& recorded : variables_)
        recorded.value.assign(recorded.variable ? recorded.size : 0, '\0');
    isTruncated_ = isDamaged_ = false;
    frame_.clear();
    taken_ = number_ = 0;
    time_ = 0;
    std::fseek(file_.get(), start_, SEEK_SET);
}

bool Reader::next(Entry& entry) {
    if (taken_ == frame_.size() && (isTruncated_ || isDamaged_ || !readFrame()))
        return false;
    if (takeEntry(entry))
        return true;
    taken_ = frame_.size();
    isDamaged_ = true;
    return false;
}

// An empty frame is never written.
bool Reader::readFrame() {
    std::uint64_t length = 0;
    taken_ = 0;
    frame_.clear();
    if (!readFrameLength(length))
        return false;
    std::string bytes(static_cast<std::size_t>(length) + CRC_BYTES, '\0');
    if (std::fread(bytes.data(), 1, bytes.size(), file_.get()) != bytes.size()) {
        isTruncated_ = true;
        return false;
    }
    std::uint32_t crc = 0;
    for (unsigned int i = 0; i < CRC_BYTES; ++i)
        crc |= std::uint32_t{static_cast<unsigned char>(bytes[static_cast<std::size_t>(length) + i])}
               << 8 * i;
    bytes.resize(static_cast<std::size_t>(length));
    isDamaged_ = crc != checksum(bytes);
    if (!isDamaged_)
        frame_ = std::move(bytes);
    return !isDamaged_;
}

bool Reader::readFrameLength(std::uint64_t& length) {
    for (unsigned int shift = 0; shift < 28; shift += 7) {
        const int byte = std::getc(file_.get());
        if (byte == EOF) {
            isTruncated_ = shift > 0;
            return false;
        }
        length |= std::uint64_t{static_cast<unsigned char>(byte)} % 0x80 << shift;
        if (byte < 0x80) {
            isDamaged_ = length == 0 || length > LARGEST_FRAME;
            return !isDamaged_;
        }
    }
    isDamaged_ = true;
    return false;
}

bool Reader::takeEntry(Entry& entry) {
    std::uint64_t time = 0;
    std::uint64_t arg1 = 0;
    std::uint64_t arg2 = 0;
    bool hasArguments = false;
    if (!takeNumber(LARGEST_TIME - time_, time) || !takeVariable(hasArguments))
        return false;
    if (hasArguments && (!takeNumber(LARGEST_WORD, arg1) || !takeNumber(LARGEST_WORD, arg2)))
        return false;
    Recorded& recorded = variables_[number_];
    if (!takeBytes(recorded))
        return false;
    time_ += time;
    entry.time = std::chrono::microseconds(time_);
    entry.number = number_;
    entry.event = {recorded.variable ? recorded.variable->descriptor().event.id : 0,
                   static_cast<std::uint32_t>(arg1), static_cast<std::uint32_t>(arg2)};
    return true;
}

bool Reader::takeVariable(bool& hasArguments) {
    std::uint64_t packed = 0;
    if (!takeNumber(4 * std::uint64_t{variables_.size()}, packed))
        return false;
    hasArguments = packed % 2 != 0;
    const std::uint64_t step = packed / 2;
    // Unsigned numbers wrap around, so a step back beyond 0 is too large as well.
    const std::uint64_t number = step % 2 == 0 ? number_ + step / 2 : number_ - (step + 1) / 2;
    if (number >= variables_.size())
        return false;
    number_ = static_cast<std::size_t>(number);
    return true;
}

bool Reader::takeBytes(Recorded& recorded) {
    const std::uint64_t size = recorded.size;
    std::uint64_t span = 0;
    if (!takeNumber(size * (size + 1), span))
        return false;
    const std::uint64_t length = span / (size + 1);
    const std::uint64_t offset = span % (size + 1);
    if (offset + length > size || length > frame_.size() - taken_)
        return false;
    if (recorded.variable)
        recorded.value.replace(static_cast<std::size_t>(offset), static_cast<std::size_t>(length), frame_,
                               taken_, static_cast<std::size_t>(length));
    taken_ += static_cast<std::size_t>(length);
    return true;
}

// Returns false for a number above the limit, also for one of more than 64 bits.
bool Reader::takeNumber(std::uint64_t limit, std::uint64_t& number) {
    number = 0;
    for (unsigned int shift = 0; shift < 64 && taken_ < frame_.size(); shift += 7) {
        const auto byte = static_cast<unsigned char>(frame_[taken_++]);
        const std::uint64_t bits = std::uint64_t{byte} % 0x80;
        if (bits << shift >> shift != bits)
            return false;
        number |= bits << shift;
        if (byte < 0x80)
            return number <= limit;
    }
    return false;
}

void Reader::fail(const std::string& reason) const {
    throw std::runtime_error(path_ + ": " + reason);
}

} // namespace recording
