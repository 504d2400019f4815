#include "device/simulation/hostupdater.h"

namespace {

constexpr double COPY_MS = 3000;

} // namespace

HostUpdater::HostUpdater() : Updater({"HostUpdateFileName", "HostUpdateFileState", "HostUpdateStart"}) {}

void HostUpdater::reset(Phase /*former*/) {
    fileVersion_.setText("");
}

void HostUpdater::check() {
    file_ = readUpdateFile(fileName_.text());
    if (file_.verdict != "FileValid") {
        end(file_.verdict);
    } else if (file_.product != product_.text()) {
        end("FileNotCompatible");
    } else {
        fileVersion_.setText(file_.version);
        enter(Phase::Waiting, "FileValid");
    }
}

void HostUpdater::copy(double elapsedMs) {
    if (elapsedMs <= COPY_MS)
        return;
    if (file_.fails)
        end("CopyingFailed");
    else
        enter(Phase::Rebooting, "Rebooting");
}

void HostUpdater::finish() {
    version_.setText(file_.version);
    end("Success");
}

void HostUpdater::end(const std::string& state) {
    enter(Phase::Idle, state);
    fileName_.setText("");
}
