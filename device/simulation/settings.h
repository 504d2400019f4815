#pragma once

#include "device/simulation/actor.h"
#include "device/simulation/variable.h"

#include <functional>
#include <string>
#include <vector>

/// The parts of the device that follow a setting: when a variable with the wanted value is set, the variable
/// with the actual value changes.
class Settings : public Actor {
public:
    Settings();

    void step(double /*timeMs*/) override {}
    std::vector<std::uint32_t> interests() const override;
    void changed(std::uint32_t eventId) override;

private:
    struct Reaction {
        Variable asked;
        std::function<void(Variable&)> react;
    };

    /// `actual` takes the value of `asked`.
    void follow(const char* asked, const char* actual);
    /// `actual` takes the value at the index `asked` of a list.
    void choose(const char* asked, const char* actual, std::vector<double> list);
    /// If `toggle` becomes true, `actual` is inverted and `toggle` becomes false.
    void turnOver(const std::string& actual, const std::string& toggle);

    std::vector<Reaction> reactions_;
};
