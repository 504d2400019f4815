#pragma once

#include "device/simulation/actor.h"
#include "device/simulation/variable.h"

#include <functional>
#include <string>
#include <vector>

/// The parts of the device that do what they are told: a variable that asks for something is followed by the
/// one that says what is so.
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
    /// `actual` takes the value that stands at the place `asked` of a list.
    void choose(const char* asked, const char* actual, std::vector<double> list);
    /// `toggle` becoming true turns `actual` over; the toggle goes back.
    void turnOver(const std::string& actual, const std::string& toggle);

    std::vector<Reaction> reactions_;
};
