#pragma once

#include "device/display/canvas.h"
#include "device/simulation/scale.h"

#include <string>
#include <vector>

/// A lens ring's scale, drawn as a tape that moves behind a fixed index in its middle:
///
///          2      2.5  v   3        4
///      |   |  |  |  |  |  |  |  |   |
class Tape {
public:
    struct Mark {
        double value;
        std::string label; ///< empty: a short line only
    };

    /// The tape's content besides its marks, as values of the scale. Empty ranges and notes of 0 are not
    /// drawn.
    struct Content {
        double value; ///< at the index
        double target;
        double rangeFirst;
        double rangeLast;
        std::vector<double> notes;
    };

    /// `length` is that of the whole scale, in the canvas' units. Lines divide the space between labelled
    /// marks into `parts`, if they are not too close.
    Tape(const Scale& scale, double length, const std::vector<Mark>& labelled, int parts);

    void draw(Canvas& canvas, const Box& box, const Content& content) const;

private:
    void divide(double first, double last, int parts);
    double place(const Box& box, double value, double middle) const;
    void drawMarks(Canvas& canvas, const Box& box, double middle) const;
    void drawRange(Canvas& canvas, const Box& box, const Content& content) const;
    void drawNotes(Canvas& canvas, const Box& box, const Content& content) const;
    void drawIndex(Canvas& canvas, const Box& box) const;

    Scale scale_;
    double length_;
    std::vector<Mark> marks_;
};
