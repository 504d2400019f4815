#include "apps/libs/lhwinfo/persistentinfo.h"

#include "apps/common/diagnostics/diagnostics.h"
#include "apps/libs/lhwinfo/checksum.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <fcntl.h>
#include <iostream>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr unsigned char FIRST_PRINTABLE = 0x20;
constexpr unsigned char DELETE = 0x7f;

std::string printable(const std::string& text) {
    std::string result;
    for (const char character : text) {
        const auto byte = static_cast<unsigned char>(character);
        if (byte >= FIRST_PRINTABLE && byte != DELETE) {
            result += character;
            continue;
        }
        char escaped[sizeof "\\xFF"];
        std::snprintf(escaped, sizeof escaped, "\\x%02x", byte);
        result += escaped;
    }
    return result;
}

// Returns whether a file or block device ends before byte `end`; false for a device without an end, as
// /dev/mem.
bool endsBefore(int fd, off_t end) {
    struct stat status {};
    if (fstat(fd, &status) < 0 || (!S_ISREG(status.st_mode) && !S_ISBLK(status.st_mode)))
        return false;
    const off_t size = lseek(fd, 0, SEEK_END);
    return size >= 0 && size < end;
}

} // namespace

PersistentInfo::PersistentInfo(const char* device, unsigned int offset, unsigned int size)
    : device_(device), offset_(offset), size_(size) {
    open();
}

PersistentInfo::~PersistentInfo() {
    release();
}

// No retry after EINTR: opening one of these devices does not block.
void PersistentInfo::open() {
    release();
    fd_ = Descriptor(::open(device_, O_RDWR | O_CLOEXEC));
    if (!fd_.isOpen())
        throwErrorNumber(__FILE__, __LINE__, "open");
    // Access to a page beyond the end of a file raises SIGBUS.
    if (endsBefore(fd_.get(), off_t{offset_} + off_t{size_})) {
        errno = ENXIO;
        throwErrorNumber(__FILE__, __LINE__, "mmap");
    }
    map();
}

void PersistentInfo::map() {
    distance_ = offset_ % static_cast<unsigned int>(getpagesize());
    mappedLength_ = std::size_t{size_} + distance_;
    const off_t start = off_t{offset_} - off_t{distance_};
    void* const mapping = mmap(nullptr, mappedLength_, PROT_READ | PROT_WRITE, MAP_SHARED, fd_.get(), start);
    if (mapping == nullptr || mapping == MAP_FAILED)
        throwErrorNumber(__FILE__, __LINE__, "mmap");
    mapping_ = mapping;
    block_ = static_cast<Block>(mapping_) + distance_;
}

void PersistentInfo::release() noexcept {
    if (mapping_ != nullptr)
        munmap(mapping_, mappedLength_);
    mapping_ = nullptr;
    block_ = nullptr;
    fd_.close();
}

void PersistentInfo::addInfo(std::unique_ptr<Base> parameter) {
    // bits_ has 32 bits.
    const std::uint64_t limit = std::min(size_, UINT_MAX / 8);
    if (parameter->endByte(bits_) > limit)
        throwError(__FILE__, __LINE__, "%s does not fit.", parameter->name().c_str());
    bits_ += parameter->sizeInBits();
    parameters_.push_back(std::move(parameter));
}

PersistentInfo::Place PersistentInfo::find(const char* name) const {
    if (name == nullptr)
        return {};
    unsigned int bit = 0;
    for (const std::unique_ptr<Base>& parameter : parameters_) {
        if (parameter->name() == name)
            return {parameter.get(), bit};
        bit += parameter->sizeInBits();
    }
    return {};
}

PersistentInfo::Place PersistentInfo::findToSet(const char* name, bool refusePrivate) const {
    const Place place = find(name);
    if (refusePrivate && place.parameter != nullptr && place.parameter->isPrivate())
        throwError(__FILE__, __LINE__, "%s is private.", name);
    return place;
}

bool PersistentInfo::get(const char* name, unsigned int& out) const {
    const Place place = find(name);
    if (place.parameter == nullptr)
        return false;
    const std::optional<std::uint32_t> number = place.parameter->number(block_, place.bit);
    out = number.value_or(out);
    return number.has_value();
}

bool PersistentInfo::get(const char* name, std::string& out) const {
    const Place place = find(name);
    if (place.parameter == nullptr)
        return false;
    out = place.parameter->value(block_, place.bit);
    return true;
}

bool PersistentInfo::set(const char* name, const unsigned int* value, bool refusePrivate) {
    const Place place = findToSet(name, refusePrivate);
    return place.parameter != nullptr && value != nullptr &&
           place.parameter->setValue(block_, place.bit, std::uint32_t{*value});
}

bool PersistentInfo::set(const char* name, const std::string& text, bool refusePrivate) {
    const Place place = findToSet(name, refusePrivate);
    return place.parameter != nullptr && place.parameter->setValue(block_, place.bit, text);
}

void PersistentInfo::requireInside(unsigned int length) const {
    if (length > size_)
        throwError(__FILE__, __LINE__, "Length %u is beyond the %u bytes of the block.", length, size_);
}

std::uint32_t PersistentInfo::checksum(unsigned int length) const {
    requireInside(length);
    return length > HEADER_SIZE ? crc32Mpeg2(block_ + HEADER_SIZE, length - HEADER_SIZE)
                                : crc32Mpeg2(block_, 0);
}

void PersistentInfo::setNewMemToDefault(unsigned int from, unsigned int to) {
    if (from >= to)
        return;
    requireInside(to);
    for (unsigned int i = from; i < to; ++i)
        block_[i] = 0;
}

void PersistentInfo::clearAll() {
    unsigned int bit = 0;
    for (const std::unique_ptr<Base>& parameter : parameters_) {
        parameter->setValue(block_, bit, parameter->kind() == Base::Kind::String ? "" : "0");
        bit += parameter->sizeInBits();
    }
}

void PersistentInfo::printParameters() const {
    unsigned int bit = 0;
    for (const std::unique_ptr<Base>& parameter : parameters_) {
        if (!parameter->isPrivate() && !parameter->isFiller())
            std::cout << parameter->name() << '=' << printable(parameter->value(block_, bit)) << '\n';
        bit += parameter->sizeInBits();
    }
}

void PersistentInfo::printAll() const {
    std::cout << "   byte.bit   bits  name                          value\n";
    unsigned int bit = 0;
    for (const std::unique_ptr<Base>& parameter : parameters_) {
        const char* const remark = parameter->isPrivate() ? "private" : parameter->isFiller() ? "filler" : "";
        char columns[128];
        std::snprintf(columns, sizeof columns, "%9u.%u %6u  %-21s %-7s ", bit / 8, bit % 8,
                      parameter->sizeInBits(), parameter->name().c_str(), remark);
        std::cout << columns << printable(parameter->value(block_, bit)) << '\n';
        bit += parameter->sizeInBits();
    }
}

void PersistentInfo::flush() {
    if (msync(mapping_, mappedLength_, MS_SYNC) < 0)
        throwErrorNumber(__FILE__, __LINE__, "msync");
}
