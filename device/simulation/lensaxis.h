#pragma once

#include "device/simulation/actor.h"
#include "device/simulation/scale.h"
#include "device/simulation/variable.h"

#include <optional>
#include <string>

/// A lens motor: follows its axis' target with limited speed and a smooth approach.
class LensAxis : public Actor {
public:
    struct Names {
        const char* target;
        const char* position;
        const char* motor;
        const char* lensValue; ///< null for an axis that is not on the lens
    };

    LensAxis(const Names& names, const Scale& scale);

    void step(double timeMs) override;

private:
    double moved(double wanted, double elapsedMs) const;
    void show(double wanted);

    Scale scale_;
    Variable target_;
    Variable positionVariable_;
    Variable motor_;
    std::optional<Variable> lensValue_;
    double position_ = 0;
    double lastMs_ = 0;
};
