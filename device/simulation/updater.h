#pragma once

#include "device/simulation/actor.h"
#include "device/simulation/updatefile.h"
#include "device/simulation/variable.h"

/// An update as the controller and its accessories go through it:
///
///     file named --> CheckingFile --> FileValid --start flag--> CopyingFile --> Rebooting --> Success
///                         |                                          |
///                         +--> reasons of check                      +--> reasons of copy
class Updater : public Actor {
public:
    void step(double timeMs) override;
    std::vector<std::uint32_t> interests() const override;
    void changed(std::uint32_t eventId) override;

protected:
    enum class Phase { Idle, Checking, Waiting, Copying, Rebooting };

    struct Names {
        const char* fileName;
        const char* state;
        const char* start;
    };

    explicit Updater(const Names& names);

    /// Called for a newly named file, in the phase of the update that it replaces.
    virtual void reset(Phase former) = 0;
    /// Reads the file and enters Waiting if it can be installed, else Idle.
    virtual void check() = 0;
    /// Enters Rebooting when all is copied, Idle after a failure.
    virtual void copy(double elapsedMs) = 0;
    /// Enters Idle with the new version installed.
    virtual void finish() = 0;

    /// Enters a phase and shows its state; Idle ends the update.
    void enter(Phase phase, const std::string& state);

    Variable fileName_;
    UpdateFile file_;

private:
    void begin();

    Variable state_;
    Variable start_;
    Phase phase_ = Phase::Idle;
    double nowMs_ = 0;
    double enteredMs_ = 0; ///< start of the present phase
};
