#pragma once

#include "device/simulation/actor.h"
#include "device/simulation/scale.h"
#include "device/simulation/variable.h"

#include <vector>

/// A hand on one of the controls: moves an axis' target smoothly from mark to mark and starts again after the
/// last. It pauses when another process sets the target.
class Puller : public Actor {
public:
    struct Mark {
        double position; ///< 0 to 1 of the control's range
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
    double from_ = 0;    ///< start position of the current move
    double beginMs_ = 0; ///< start time of the current move
    float written_ = 0;  ///< the last value that this hand has set
};
