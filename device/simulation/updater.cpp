#include "device/simulation/updater.h"

namespace {

constexpr double CHECK_MS = 800;
constexpr double REBOOT_MS = 3000;

} // namespace

Updater::Updater(const Names& names) : fileName_(names.fileName), state_(names.state), start_(names.start) {}

std::vector<std::uint32_t> Updater::interests() const {
    return {fileName_.eventId()};
}

void Updater::changed(std::uint32_t eventId) {
    if (eventId != fileName_.eventId() || fileName_.text().empty())
        return;
    start_.setBool(false);
    reset(phase_);
    enter(Phase::Checking, "CheckingFile");
}

void Updater::step(double timeMs) {
    nowMs_ = timeMs;
    const double elapsedMs = timeMs - enteredMs_;
    if (phase_ == Phase::Checking && elapsedMs > CHECK_MS)
        check();
    else if (phase_ == Phase::Waiting && start_.toBool())
        begin();
    else if (phase_ == Phase::Copying)
        copy(elapsedMs);
    else if (phase_ == Phase::Rebooting && elapsedMs > REBOOT_MS)
        finish();
}

void Updater::enter(Phase phase, const std::string& state) {
    phase_ = phase;
    enteredMs_ = nowMs_;
    state_.setText(state);
}

// The file may have been replaced since the first check. The flag is cleared after the state has changed,
// because a process that sees FileValid without the flag sets it again.
void Updater::begin() {
    check();
    if (phase_ == Phase::Waiting)
        enter(Phase::Copying, "CopyingFile");
    start_.setBool(false);
}
