#pragma once

/// A value that moves around a centre continuously and with a long period, equal in every run.
class Drift {
public:
    /// The value stays between centre - amplitude and centre + amplitude; the main period is `periodMs`.
    constexpr Drift(double centre, double amplitude, double periodMs)
        : centre_(centre), amplitude_(amplitude), periodMs_(periodMs) {}

    double at(double timeMs) const;

private:
    double centre_;
    double amplitude_;
    double periodMs_;
};
