#pragma once

#include "device/simulation/actor.h"
#include "device/simulation/updatefile.h"
#include "device/simulation/variable.h"

/// The controller's own update:
///
///     file named --> CheckingFile --> FileValid --start flag--> CopyingFile --> Rebooting --> Success
///                         |                                          |
///                         +--> FileNotFound, FileCorrupt,            +--> CopyingFailed
///                              FileNotCompatible
///
/// "Rebooting" only takes a while: the controller goes on, and has the new version afterwards. Where it ends
/// the file's name is emptied, so that naming the same file again is a change.
class HostUpdater : public Actor {
public:
    void step(double timeMs) override;
    std::vector<std::uint32_t> interests() const override;
    void changed(std::uint32_t eventId) override;

private:
    enum class Phase { Idle, Checking, Waiting, Copying, Rebooting };

    /// Shows the state; with a phase in which nothing goes on the update is over.
    void enter(Phase phase, const std::string& state);
    void check();
    void begin();
    void finishCopying();
    void finish(const std::string& state);

    Variable fileName_{"HostUpdateFileName"};
    Variable state_{"HostUpdateFileState"};
    Variable start_{"HostUpdateStart"};
    Variable fileVersion_{"HostUpdateFileFirmwareVersion"};
    Variable product_{"ProductName"};
    Variable version_{"ProductVersion"};
    Phase phase_ = Phase::Idle;
    UpdateFile file_;
    double nowMs_ = 0;
    double enteredMs_ = 0; ///< when the present phase began
};
