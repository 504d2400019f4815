#pragma once

/// A lens ring's scale: maps positions of the ring, 0 to 1, to values. The last value is the largest; all
/// values of a scale that is not linear are above 0.
class Scale {
public:
    enum class Kind {
        Linear,     ///< equal steps, as an AUX axis
        Geometric,  ///< equal factors, as iris and zoom rings
        Reciprocal, ///< equal steps of 1/value, as focus rings, with near distances far apart
    };

    constexpr Scale(Kind kind, double first, double last) : kind_(kind), first_(first), last_(last) {}

    /// The value at `position`, which is limited to 0 and 1.
    double value(double position) const;
    /// The position of `value`, limited to 0 and 1; 0 for a value that is not on the scale, such as NaN.
    double position(double value) const;

private:
    /// The value's measure, proportional to the distance on the ring.
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
