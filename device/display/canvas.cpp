#include "device/display/canvas.h"

#include <cairo.h>
#include <numbers>
#include <stdexcept>

namespace {

constexpr double QUARTER = std::numbers::pi / 2;
constexpr const char* FONT = "DejaVu Sans";

// The length in UTF-8 of the character at `place`; 0 if it is malformed, a control character, or one that the
// font lacks, from U+D000 on.
std::size_t characterSize(const std::string& text, std::size_t place) {
    const auto byte = static_cast<unsigned char>(text[place]);
    if (byte < 0x80)
        return byte >= ' ' && byte != 0x7f ? 1 : 0;
    const std::size_t size = byte >= 0xc2 && byte < 0xe0 ? 2 : byte > 0xe0 && byte < 0xed ? 3 : 0;
    if (size == 0 || place + size > text.size())
        return 0;
    for (std::size_t i = 1; i < size; ++i)
        if ((static_cast<unsigned char>(text[place + i]) & 0xc0) != 0x80)
            return 0;
    return size;
}

// A malformed text puts cairo into an error state, in which it draws nothing more.
std::string drawable(const std::string& text) {
    std::string result;
    for (std::size_t place = 0; place < text.size();) {
        const std::size_t size = characterSize(text, place);
        result += size == 0 ? "?" : text.substr(place, size);
        place += size == 0 ? 1 : size;
    }
    return result;
}

} // namespace

Canvas::Canvas(unsigned char* pixels, int width, int height) {
    cairo_surface_t* const surface =
        cairo_image_surface_create_for_data(pixels, CAIRO_FORMAT_ARGB32, width, height, width * 4);
    cairo_ = cairo_create(surface);
    cairo_surface_destroy(surface);
    if (cairo_status(cairo_) != CAIRO_STATUS_SUCCESS) {
        const std::string reason = cairo_status_to_string(cairo_status(cairo_));
        cairo_destroy(cairo_);
        throw std::runtime_error(reason);
    }
    cairo_scale(cairo_, height / HEIGHT, height / HEIGHT);
    width_ = width * HEIGHT / height;
}

Canvas::~Canvas() {
    cairo_destroy(cairo_);
}

void Canvas::setColour(const Colour& colour) {
    cairo_set_source_rgba(cairo_, colour.red, colour.green, colour.blue, colour.alpha);
}

void Canvas::fill(const Colour& colour) {
    setColour(colour);
    cairo_paint(cairo_);
}

void Canvas::roundedPath(const Box& box, double radius) {
    cairo_new_sub_path(cairo_);
    cairo_arc(cairo_, box.right() - radius, box.top + radius, radius, -QUARTER, 0);
    cairo_arc(cairo_, box.right() - radius, box.bottom() - radius, radius, 0, QUARTER);
    cairo_arc(cairo_, box.left + radius, box.bottom() - radius, radius, QUARTER, 2 * QUARTER);
    cairo_arc(cairo_, box.left + radius, box.top + radius, radius, 2 * QUARTER, 3 * QUARTER);
    cairo_close_path(cairo_);
}

void Canvas::box(const Box& box, double radius, const Colour& colour) {
    setColour(colour);
    roundedPath(box, radius);
    cairo_fill(cairo_);
}

void Canvas::frame(const Box& box, double radius, double lineWidth, const Colour& colour) {
    setColour(colour);
    roundedPath(box, radius);
    cairo_set_line_width(cairo_, lineWidth);
    cairo_stroke(cairo_);
}

void Canvas::gradient(const Box& box, const Colour& left, const Colour& right) {
    cairo_pattern_t* const pattern = cairo_pattern_create_linear(box.left, 0, box.right(), 0);
    cairo_pattern_add_color_stop_rgba(pattern, 0, left.red, left.green, left.blue, left.alpha);
    cairo_pattern_add_color_stop_rgba(pattern, 1, right.red, right.green, right.blue, right.alpha);
    cairo_set_source(cairo_, pattern);
    cairo_pattern_destroy(pattern);
    cairo_rectangle(cairo_, box.left, box.top, box.width, box.height);
    cairo_fill(cairo_);
}

void Canvas::vertical(double x, double top, double bottom, double lineWidth, const Colour& colour) {
    setColour(colour);
    cairo_rectangle(cairo_, x - lineWidth / 2, top, lineWidth, bottom - top);
    cairo_fill(cairo_);
}

void Canvas::horizontal(double y, double left, double right, double lineWidth, const Colour& colour) {
    setColour(colour);
    cairo_rectangle(cairo_, left, y - lineWidth / 2, right - left, lineWidth);
    cairo_fill(cairo_);
}

void Canvas::triangle(double x1, double y1, double x2, double y2, double x3, double y3,
                      const Colour& colour) {
    setColour(colour);
    cairo_move_to(cairo_, x1, y1);
    cairo_line_to(cairo_, x2, y2);
    cairo_line_to(cairo_, x3, y3);
    cairo_close_path(cairo_);
    cairo_fill(cairo_);
}

void Canvas::circle(double x, double y, double radius, const Colour& colour) {
    setColour(colour);
    cairo_arc(cairo_, x, y, radius, 0, 4 * QUARTER);
    cairo_fill(cairo_);
}

void Canvas::setFont(const Style& style) {
    const bool isBold = style.weight == Weight::Bold;
    cairo_select_font_face(cairo_, FONT, CAIRO_FONT_SLANT_NORMAL,
                           isBold ? CAIRO_FONT_WEIGHT_BOLD : CAIRO_FONT_WEIGHT_NORMAL);
    cairo_set_font_size(cairo_, style.size);
}

double Canvas::textWidth(const std::string& text, const Style& style) {
    cairo_text_extents_t extents;
    setFont(style);
    cairo_text_extents(cairo_, drawable(text).c_str(), &extents);
    return extents.x_advance;
}

double Canvas::text(double x, double y, const std::string& text, const Style& style) {
    const double width = textWidth(text, style);
    const double part = style.align == Align::Left ? 0 : style.align == Align::Centre ? 0.5 : 1;
    setColour(style.colour);
    cairo_move_to(cairo_, x - part * width, y);
    cairo_show_text(cairo_, drawable(text).c_str());
    cairo_new_path(cairo_);
    return width;
}

void Canvas::clip(const Box& box) {
    cairo_save(cairo_);
    cairo_rectangle(cairo_, box.left, box.top, box.width, box.height);
    cairo_clip(cairo_);
}

void Canvas::unclip() {
    cairo_restore(cairo_);
}
