#include "device/simulation/hostupdater.h"

namespace {

constexpr double CHECK_MS = 800;
constexpr double COPY_MS = 3000;
constexpr double REBOOT_MS = 4000;

} // namespace

std::vector<std::uint32_t> HostUpdater::interests() const {
    return {fileName_.eventId()};
}

void HostUpdater::changed(std::uint32_t eventId) {
    if (eventId == fileName_.eventId() && !fileName_.text().empty()) {
        start_.setBool(false);
        fileVersion_.setText("");
        enter(Phase::Checking, "CheckingFile");
    }
}

void HostUpdater::step(double timeMs) {
    nowMs_ = timeMs;
    const double elapsedMs = timeMs - enteredMs_;
    if (phase_ == Phase::Checking && elapsedMs > CHECK_MS) {
        check();
    } else if (phase_ == Phase::Waiting && start_.toBool()) {
        begin();
    } else if (phase_ == Phase::Copying && elapsedMs > COPY_MS) {
        finishCopying();
    } else if (phase_ == Phase::Rebooting && elapsedMs > REBOOT_MS) {
        version_.setText(file_.version);
        finish("Success");
    }
}

void HostUpdater::enter(Phase phase, const std::string& state) {
    phase_ = phase;
    enteredMs_ = nowMs_;
    state_.setText(state);
}

void HostUpdater::check() {
    file_ = readUpdateFile(fileName_.text());
    if (file_.verdict != "FileValid") {
        finish(file_.verdict);
    } else if (file_.product != product_.text()) {
        finish("FileNotCompatible");
    } else {
        fileVersion_.setText(file_.version);
        enter(Phase::Waiting, "FileValid");
    }
}

// The file may have been replaced since it was found valid. The flag is lowered last: whoever still sees a
// valid file that nobody has started would raise it again.
void HostUpdater::begin() {
    check();
    if (phase_ == Phase::Waiting)
        enter(Phase::Copying, "CopyingFile");
    start_.setBool(false);
}

void HostUpdater::finishCopying() {
    if (file_.fails)
        finish("CopyingFailed");
    else
        enter(Phase::Rebooting, "Rebooting");
}

void HostUpdater::finish(const std::string& state) {
    enter(Phase::Idle, state);
    fileName_.setText("");
}
