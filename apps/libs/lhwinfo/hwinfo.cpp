#include "apps/libs/lhwinfo/hwinfo.h"

#include "apps/common/diagnostics/constants.h"
#include "apps/common/diagnostics/diagnostics.h"

#include <cstring>

namespace {

constexpr unsigned int REGISTER_OFFSET = 0x20CC068;
constexpr unsigned int REGISTER_SIZE = 4;
constexpr unsigned int CARD_OFFSET = 0x100000;
constexpr unsigned int CARD_SIZE = 0x10000;
constexpr unsigned int TEXT_LENGTH = 30;
constexpr unsigned int LINEARIZATION_LENGTH = 180;

constexpr const char* VERSION = "version";
constexpr const char* LENGTH = "length";
constexpr const char* CHECKSUM = "checksum";

constexpr const char* TEXTS[] = {Constants::HWINFO_SERIAL, Constants::HWINFO_BOARD,
                                 Constants::HWINFO_REVISION, Constants::HWINFO_K};
constexpr const char* NUMBERS[] = {
    Constants::KNOB_POS_MIN,        Constants::KNOB_POS_MAX,        Constants::SLIDER_POS_MIN,
    Constants::SLIDER_POS_MAX,      Constants::JOYSTICK_ZERO_POS_X, Constants::JOYSTICK_ZERO_POS_Y,
    Constants::VIBRATION_BEMF_GAIN, Constants::VIBRATION_CAL_COMP,  Constants::VIBRATION_CAL_BEMF};

template <typename Parameter, typename... Arguments>
void add(PersistentInfo& block, Arguments... arguments) {
    block.addInfo(std::make_unique<Parameter>(arguments...));
}

} // namespace

HwInfo::HwInfo() : HwInfo("/dev/mem", "/dev/mmcblk1") {}

HwInfo::HwInfo(const char* registerDevice, const char* cardDevice)
    : register_(registerDevice, REGISTER_OFFSET, REGISTER_SIZE), card_(cardDevice, CARD_OFFSET, CARD_SIZE) {}

void HwInfo::declareParameters() {
    if (card_.size() == 0) {
        declareCard();
        declareRegister();
    }
}

void HwInfo::declareCard() {
    add<PersistentInfo::Int>(card_, VERSION, Parameter::PRIVATE);
    add<PersistentInfo::Int>(card_, LENGTH, Parameter::PRIVATE, CARD_SIZE);
    add<PersistentInfo::Int>(card_, CHECKSUM, Parameter::PRIVATE);
    for (const char* name : TEXTS)
        add<PersistentInfo::String>(card_, name, TEXT_LENGTH);
    for (const char* name : NUMBERS)
        add<PersistentInfo::Int>(card_, name);
    add<PersistentInfo::String>(card_, Constants::HWINFO_KNOB_LINEARIZATION, LINEARIZATION_LENGTH);
}

void HwInfo::declareRegister() {
    add<PersistentInfo::Bits>(register_, Constants::HWINFO_UPDATE_REQ, 1u);
    add<PersistentInfo::Bits>(register_, Constants::HWINFO_UNUSED, 26u, Parameter::FILLER);
    add<PersistentInfo::Bits>(register_, Constants::HWINFO_BOOT_FAILED, 1u);
    add<PersistentInfo::Bits>(register_, Constants::HWINFO_BOOT_FAILED_COUNTER, 4u);
}

void HwInfo::initialize() {
    declareParameters();
    unsigned int length = number(LENGTH);
    if (length < card_.size()) {
        LOG_MESSAGE(Error, "Differents length, setting new values to default.");
        initNewMemory(length);
        length = card_.size();
    }
    if (!isIntact(length)) {
        LOG_MESSAGE(Error, "Wrong checksum, setting defaults.");
        clear();
    }
}

HwInfo::Content HwInfo::examine() {
    declareParameters();
    const unsigned int length = number(LENGTH);
    if (length >= card_.size())
        return isIntact(length) ? Content::Valid : Content::Invalid;
    // If a power cut interrupts growing, the block has the new checksum and the old length.
    const bool isBlock = length > PersistentInfo::HEADER_SIZE && (isIntact(length) || isIntact(card_.size()));
    return isBlock ? Content::Older : Content::Invalid;
}

unsigned int HwInfo::number(const char* name) const {
    unsigned int value = 0;
    card_.get(name, value);
    return value;
}

bool HwInfo::isIntact(unsigned int length) const {
    return length <= card_.regionSize() && card_.checksum(length) == number(CHECKSUM);
}

bool HwInfo::read(const char* name, unsigned int& value) const {
    return card_.get(name, value) || register_.get(name, value);
}

bool HwInfo::read(const char* name, std::string& value) const {
    return card_.get(name, value) || register_.get(name, value);
}

bool HwInfo::sealed(bool isStored) {
    if (isStored)
        updateChecksum();
    return isStored;
}

bool HwInfo::write(const char* name, unsigned int value) {
    card_.requireInside(number(LENGTH));
    return sealed(card_.set(name, &value) || register_.set(name, &value));
}

bool HwInfo::write(const std::string& assignment) {
    const std::size_t end = assignment.find('=');
    if (end == std::string::npos || assignment.find('\0') != std::string::npos)
        return false;
    card_.requireInside(number(LENGTH));
    const std::string name = assignment.substr(0, end);
    const std::string text = assignment.substr(end + 1);
    return sealed(card_.set(name.c_str(), text, true) || register_.set(name.c_str(), text, true));
}

bool HwInfo::write(const char* name, const char* text, unsigned int length) {
    const Parameter* const parameter = card_.parameter(name);
    if (parameter == nullptr)
        return false;
    if (parameter->isPrivate())
        throwError(__FILE__, __LINE__, "%s is private.", name);
    if (parameter->kind() != Parameter::Kind::String || text == nullptr)
        return false;
    card_.requireInside(number(LENGTH));
    return sealed(card_.set(name, std::string(text, strnlen(text, length))));
}

std::string HwInfo::refusal(const std::string& assignment) const {
    const std::size_t end = assignment.find('=');
    if (end == std::string::npos)
        return assignment + " has no \"=\"";
    const std::string name = assignment.substr(0, end);
    const Parameter* parameter = card_.parameter(name.c_str());
    if (parameter == nullptr)
        parameter = register_.parameter(name.c_str());
    if (parameter == nullptr || parameter->name() != name)
        return "Unknown parameter: " + name;
    return parameter->isPrivate() ? name + " is private" : parameter->refusal(assignment.substr(end + 1));
}

void HwInfo::updateChecksum() {
    const unsigned int checksum = card_.checksum(number(LENGTH));
    card_.set(CHECKSUM, &checksum);
}

void HwInfo::initNewMemory(unsigned int length) {
    const unsigned int size = card_.size();
    card_.setNewMemToDefault(length, size);
    if (number(VERSION) != MMC_BLOCK_VERSION)
        card_.set(VERSION, &MMC_BLOCK_VERSION);
    const unsigned int checksum = card_.checksum(size);
    card_.set(CHECKSUM, &checksum);
    card_.set(LENGTH, &size);
}

void HwInfo::clear() {
    // The length first: otherwise a half-cleared block with a shorter length would count as an older one.
    const unsigned int size = card_.size();
    card_.set(LENGTH, &size);
    card_.setNewMemToDefault(PersistentInfo::HEADER_SIZE, size);
    card_.set(VERSION, &MMC_BLOCK_VERSION);
    updateChecksum();
}

void HwInfo::printParameters() const {
    card_.printParameters();
    register_.printParameters();
}

void HwInfo::printAll() const {
    card_.printAll();
    register_.printAll();
}
