#pragma once

/// A lens ring's scale: which value stands at which part of the ring's way, 0 to 1. The last value is the
/// largest, and none of a scale that is not linear is zero or less.
class Scale {
public:
    enum class Kind {
        Linear,     ///< equal steps, as an AUX axis
        Geometric,  ///< equal factors, as iris and zoom rings
        Reciprocal, ///< equal steps of 1/value, as focus rings: near distances lie wide apart
    };

    constexpr Scale(Kind kind, double first, double last) : kind_(kind), first_(first), last_(last) {}

    /// The value at `position`, which is held to 0 and 1.
    double value(double position) const;
    /// The position of `value`, held to 0 and 1. A value without a place on the scale, such as NaN, lies at
    /// 0.
    double position(double value) const;

private:
    /// The value's measure on the ring, in which the scale is even.
    double measure(double value) const;

    Kind kind_;
    double first_;
    double last_;
};

/// Metres.
inline constexpr Scale FOCUS_SCALE{Scale::Kind::Reciprocal, 0.45, 1000};
/// T-stops.
inline constexpr Scale IRIS_SCALE{Scale::Kind::Geometric, 2.0, 22.6};
/// Millimetres.
inline constexpr Scale ZOOM_SCALE{Scale::Kind::Geometric, 19.5, 94};
inline constexpr Scale AUX_SCALE{Scale::Kind::Linear, 0, 1};
