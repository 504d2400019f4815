#include "apps/variables/recording/writer.h"

#include "gen/code/memories.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stdexcept>

namespace recording {

namespace {

std::string description(const std::vector<VariableId>& variables, const std::string& started) {
    std::string text = "catalogue " CATALOGUE_HASH "\nstarted " + started + "\n";
    for (const VariableId& variable : variables)
        text += describe(variable) + "\n";
    return text;
}

// Appends the bytes of `value` that differ from `old`, from the first to the last, and their place.
void appendSpan(std::string& out, const std::string& old, const std::string& value) {
    const auto [first, oldFirst] = std::mismatch(value.begin(), value.end(), old.begin());
    const auto last =
        std::mismatch(value.rbegin(), std::make_reverse_iterator(first), old.rbegin()).first.base();
    const auto length = static_cast<std::uint64_t>(last - first);
    const auto offset = static_cast<std::uint64_t>(first - value.begin());
    appendNumber(out, length == 0 ? 0 : length * (value.size() + 1) + offset);
    out.append(first, last);
}

// What is added to `from` to get `to`, with the sign in the lowest bit.
std::uint64_t step(std::size_t from, std::size_t to) {
    return to >= from ? 2 * std::uint64_t{to - from} : 2 * std::uint64_t{from - to} - 1;
}

} // namespace

Writer::Writer(const std::string& path, std::vector<VariableId> variables, const std::string& started)
    : path_(path), variables_(std::move(variables)) {
    for (const VariableId& variable : variables_)
        values_.emplace_back(variable.descriptor().size, '\0');
    if (!file_.open(path_))
        fail();
    write(MAGIC);
    writeFrame(description(variables_, started));
}

void Writer::start() {
    for (std::size_t number = 0; number < variables_.size(); ++number)
        add(std::chrono::microseconds(0), number, {0, 0, 0});
    flush();
}

void Writer::add(std::chrono::microseconds sinceStart, std::size_t number, const Notify& event) {
    const VariableDescriptor& variable = variables_[number].descriptor();
    const std::string value(*variable.memory + variable.location, variable.size);
    const bool hasArguments = event.arg1 != 0 || event.arg2 != 0;
    appendNumber(entries_, static_cast<std::uint64_t>((sinceStart - time_).count()));
    appendNumber(entries_, 2 * step(number_, number) + (hasArguments ? 1 : 0));
    if (hasArguments) {
        appendNumber(entries_, event.arg1);
        appendNumber(entries_, event.arg2);
    }
    appendSpan(entries_, values_[number], value);
    values_[number] = value;
    time_ = sinceStart;
    number_ = number;
}

void Writer::flush() {
    if (!entries_.empty())
        writeFrame(entries_);
    entries_.clear();
}

void Writer::sync() {
    if (!file_.sync())
        fail();
}

void Writer::writeFrame(std::string_view content) {
    std::string frame;
    appendNumber(frame, content.size());
    frame += content;
    const std::uint32_t crc = checksum(content);
    for (unsigned int bit = 0; bit < 8 * CRC_BYTES; bit += 8)
        frame += static_cast<char>(crc >> bit);
    write(frame);
}

void Writer::write(std::string_view bytes) {
    if (!file_.write(bytes))
        fail();
    size_ += bytes.size();
}

void Writer::fail() const {
    throw std::runtime_error(path_ + ": " + std::strerror(errno));
}

} // namespace recording
