#include "device/display/tape.h"

#include "device/display/palette.h"

#include <algorithm>

namespace {

constexpr double LEAST_GAP = 9;     // between two lines
constexpr double LABEL_SIZE = 0.24; // of the tape's height
constexpr double FADE = 90;

Colour transparent(Colour colour) {
    colour.alpha = 0;
    return colour;
}

} // namespace

Tape::Tape(const Scale& scale, double length, const std::vector<Mark>& labelled, int parts)
    : scale_(scale), length_(length), marks_(labelled) {
    for (std::size_t i = 1; i < labelled.size(); ++i)
        divide(labelled[i - 1].value, labelled[i].value, parts);
}

void Tape::divide(double first, double last, int parts) {
    const double way = length_ * (scale_.position(last) - scale_.position(first));
    for (; parts > 1 && way / parts < LEAST_GAP; --parts) {
    }
    for (int i = 1; i < parts; ++i)
        marks_.push_back({first + (last - first) * i / parts, ""});
}

double Tape::place(const Box& box, double value, double middle) const {
    return box.centre() + (scale_.position(value) - scale_.position(middle)) * length_;
}

void Tape::draw(Canvas& canvas, const Box& box, const Content& content) const {
    canvas.box(box, 6, palette::TAPE);
    canvas.clip(box);
    drawRange(canvas, box, content);
    drawMarks(canvas, box, content.value);
    drawNotes(canvas, box, content);
    canvas.gradient({box.left, box.top, FADE, box.height}, palette::PANEL, transparent(palette::PANEL));
    canvas.gradient({box.right() - FADE, box.top, FADE, box.height}, transparent(palette::PANEL),
                    palette::PANEL);
    canvas.unclip();
    drawIndex(canvas, box);
}

void Tape::drawMarks(Canvas& canvas, const Box& box, double middle) const {
    const double size = box.height * LABEL_SIZE;
    for (const Mark& mark : marks_) {
        const double x = place(box, mark.value, middle);
        if (x < box.left - 2 * FADE || x > box.right() + 2 * FADE)
            continue;
        const bool isShort = mark.label.empty();
        canvas.vertical(x, box.bottom() - box.height * (isShort ? 0.26 : 0.42), box.bottom(),
                        isShort ? 1.5 : 2.5, isShort ? palette::DIM : palette::BRIGHT);
        canvas.text(x, box.top + box.height * 0.42, mark.label,
                    {size, palette::BRIGHT, Canvas::Align::Centre, Canvas::Weight::Bold});
    }
}

void Tape::drawRange(Canvas& canvas, const Box& box, const Content& content) const {
    const double left = std::max(place(box, content.rangeFirst, content.value), box.left);
    const double right = std::min(place(box, content.rangeLast, content.value), box.right());
    if (content.rangeFirst < content.rangeLast && left < right)
        canvas.gradient({left, box.top, right - left, box.height}, palette::RANGE, palette::RANGE);
}

void Tape::drawNotes(Canvas& canvas, const Box& box, const Content& content) const {
    const double half = 6;
    for (const double note : content.notes) {
        if (note > 0) {
            const double x = place(box, note, content.value);
            canvas.triangle(x - half, box.top, x + half, box.top, x, box.top + 1.6 * half, palette::NOTE);
        }
    }
    const double x = std::clamp(place(box, content.target, content.value), box.left, box.right());
    canvas.triangle(x - half, box.bottom(), x + half, box.bottom(), x, box.bottom() - 1.6 * half,
                    palette::NORMAL);
}

void Tape::drawIndex(Canvas& canvas, const Box& box) const {
    const double x = box.centre();
    canvas.vertical(x, box.top - 4, box.bottom() + 4, 3, palette::INDEX);
    canvas.triangle(x - 8, box.top - 6, x + 8, box.top - 6, x, box.top + 6, palette::INDEX);
}
