#pragma once

/// A value that wanders around a centre without a jump and without repeating itself soon: the same at every
/// run.
class Drift {
public:
    /// The value stays within centre - amplitude and centre + amplitude; its main swing takes `periodMs`.
    constexpr Drift(double centre, double amplitude, double periodMs)
        : centre_(centre), amplitude_(amplitude), periodMs_(periodMs) {}

    double at(double timeMs) const;

private:
    double centre_;
    double amplitude_;
    double periodMs_;
};
