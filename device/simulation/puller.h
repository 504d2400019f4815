#pragma once

#include "device/simulation/actor.h"
#include "device/simulation/scale.h"
#include "device/simulation/variable.h"

#include <vector>

/// A hand on one of the controls: moves an axis' target from mark to mark, smoothly, and begins again after
/// the last. When somebody else sets the target, the hand lets go for a while.
class Puller : public Actor {
public:
    struct Mark {
        double position; ///< part of the control's way
        double moveMs;   ///< time to get there
        double holdMs;   ///< time to stay
    };

    /// `control` and `target` are variable names. REQUIRES: at least one mark.
    Puller(const char* control, const char* target, const Scale& scale, std::vector<Mark> marks);

    void step(double timeMs) override;

private:
    void letGo(double timeMs);
    void pull(double position);

    Variable control_;
    Variable target_;
    Scale scale_;
    std::vector<Mark> marks_;
    std::size_t current_ = 0;
    double from_ = 0;    ///< position at which the current move began
    double beginMs_ = 0; ///< time at which it begins
    float written_ = 0;  ///< what this hand has set last
};
