#pragma once

#include <string>

typedef struct _cairo cairo_t; // as cairo declares it, so that users need not include its headers

struct Colour {
    double red, green, blue;
    double alpha = 1;

    /// Of 0xRRGGBB.
    static constexpr Colour of(unsigned int code, double alpha = 1) {
        return {(code >> 16 & 255) / 255.0, (code >> 8 & 255) / 255.0, (code & 255) / 255.0, alpha};
    }
};

struct Box {
    double left, top, width, height;

    constexpr double right() const { return left + width; }
    constexpr double bottom() const { return top + height; }
    constexpr double centre() const { return left + width / 2; }
};

/// Draws into pixels of four bytes: blue, green, red, alpha. The unit of length is 1/HEIGHT of the screen's
/// height, so that one layout fits all sizes; the origin is the upper left corner.
class Canvas {
public:
    static constexpr double HEIGHT = 480;

    enum class Align { Left, Centre, Right };
    enum class Weight { Normal, Bold };
    struct Style {
        double size;
        Colour colour;
        Align align = Align::Left;
        Weight weight = Weight::Normal;
    };

    /// A row has width * 4 bytes. `pixels` must outlive the canvas. Throws std::runtime_error with
    /// cairo's reason.
    Canvas(unsigned char* pixels, int width, int height);
    ~Canvas();
    Canvas(const Canvas&) = delete;
    Canvas& operator=(const Canvas&) = delete;

    double width() const { return width_; }

    void fill(const Colour& colour);
    void box(const Box& box, double radius, const Colour& colour);
    void frame(const Box& box, double radius, double lineWidth, const Colour& colour);
    /// From one colour at the left side to another at the right.
    void gradient(const Box& box, const Colour& left, const Colour& right);
    void vertical(double x, double top, double bottom, double lineWidth, const Colour& colour);
    void horizontal(double y, double left, double right, double lineWidth, const Colour& colour);
    void triangle(double x1, double y1, double x2, double y2, double x3, double y3, const Colour& colour);
    void circle(double x, double y, double radius, const Colour& colour);

    /// Writes `text` with its base line at y and returns its width. Bytes that are not a printable character
    /// in UTF-8 show as "?".
    double text(double x, double y, const std::string& text, const Style& style);
    double textWidth(const std::string& text, const Style& style);

    /// Limits drawing to `box` until unclip.
    void clip(const Box& box);
    void unclip();

private:
    void setColour(const Colour& colour);
    void setFont(const Style& style);
    void roundedPath(const Box& box, double radius);

    cairo_t* cairo_;
    double width_;
};
