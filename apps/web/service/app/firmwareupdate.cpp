#include "apps/web/service/app/firmwareupdate.h"

#include "apps/common/diagnostics/constants.h"
#include "apps/common/diagnostics/diagnostics.h"
#include "apps/common/event/events_gen.h"
#include "apps/common/introspection/sharedvalue.h"
#include "gen/code/enumerations_gen.h"
#include "gen/code/introspection_gen.h"
#include "gen/code/memories.h"

#include <cstddef>
#include <stdexcept>

namespace {

namespace EventId = gen::EventId;

constexpr SharedPlace media(std::size_t offset, std::uint32_t event) {
    return {&gMemMedia, offset, event};
}

constexpr SharedPlace external(std::size_t offset, std::uint32_t event) {
    return {&gMemExternalDevices, offset, event};
}

using Media = MemMedia;
constexpr SharedText HOST_FILE_NAME{
    media(offsetof(Media, HostUpdateFileName), EventId::VarHostUpdateFileNameChanged),
    sizeof(Media::HostUpdateFileName)};
constexpr SharedInt HOST_STATE{
    media(offsetof(Media, HostUpdateFileState), EventId::VarHostUpdateFileStateChanged)};
constexpr SharedFlag HOST_START{media(offsetof(Media, HostUpdateStart), EventId::VarHostUpdateStartChanged)};

using Accessories = MemExternalDevices;
constexpr SharedText DEVICE_NAME{
    external(offsetof(Accessories, RBusUpdateDeviceName), EventId::VarRBusUpdateDeviceNameChanged),
    sizeof(Accessories::RBusUpdateDeviceName)};
constexpr SharedInt DEVICE_SERIAL{
    external(offsetof(Accessories, RBusUpdateDeviceSerial), EventId::VarRBusUpdateDeviceSerialChanged)};
constexpr SharedText FILE_NAME{
    external(offsetof(Accessories, RBusUpdateFileName), EventId::VarRBusUpdateFileNameChanged),
    sizeof(Accessories::RBusUpdateFileName)};
constexpr SharedFlag START{
    external(offsetof(Accessories, RBusUpdateStart), EventId::VarRBusUpdateStartChanged)};
constexpr SharedInt PROGRESS{
    external(offsetof(Accessories, RBusUpdateProgress), EventId::VarRBusUpdateProgressChanged)};
constexpr SharedInt INDEX{
    external(offsetof(Accessories, RBusUpdateIndex), EventId::VarRBusUpdateIndexChanged)};
constexpr SharedInt COUNT{
    external(offsetof(Accessories, RBusUpdateCount), EventId::VarRBusUpdateCountChanged)};
constexpr SharedInt STATE{
    external(offsetof(Accessories, RBusUpdateState), EventId::VarRBusUpdateStateChanged)};

constexpr auto NO_FILE_SELECTED = static_cast<std::int32_t>(gen::UpdateState::NoFileSelected);
constexpr auto FILE_VALID = static_cast<std::int32_t>(gen::UpdateState::FileValid);
constexpr auto REBOOTING = static_cast<std::int32_t>(gen::UpdateState::Rebooting);

std::string stateName(std::int32_t state) {
    return getUpdateStateIntrospection(&state, 0);
}

// The memory may hold any values: 64 bits hold every result, of which the lower 32 are returned.
std::int32_t overallProgress() {
    const std::int64_t count = COUNT.read();
    if (count == 0)
        return 0;
    return static_cast<std::int32_t>((PROGRESS.read() + std::int64_t{100} * INDEX.read()) / count);
}

std::int32_t toSerial(const std::string& text) {
    try {
        return std::stoi(text);
    } catch (const std::logic_error&) {
        throwError(__FILE__, __LINE__, "'%s' is not a serial number", text.c_str());
    }
}

} // namespace

UpdateStatus hostUpdateStatus() {
    std::int32_t state = HOST_STATE.read();
    if (state == FILE_VALID) {
        HOST_START.raise();
        state = REBOOTING;
    }
    return {stateName(state), 0};
}

UpdateStatus accessoryUpdateStatus() {
    const std::int32_t progress = overallProgress();
    const std::int32_t state = STATE.read();
    if (state == FILE_VALID)
        START.raise();
    return {stateName(state), progress};
}

void offerHostFile() {
    HOST_FILE_NAME.store(Constants::SUP_FILE);
}

void offerAccessoryFile(const std::string& name, const std::string& serial) {
    STATE.store(NO_FILE_SELECTED);
    PROGRESS.store(0);
    FILE_NAME.store(""); // so that the name is a change even when it was the same before
    FILE_NAME.store(Constants::CMF_FILE);
    DEVICE_SERIAL.store(toSerial(serial));
    DEVICE_NAME.store(name);
}
