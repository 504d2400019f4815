#include "device/simulation/puller.h"

#include <algorithm>
#include <utility>

namespace {

constexpr double AWAY_MS = 15000;

// Maps 0 to 1 to 0 to 1 with speed 0 at both ends.
double eased(double progress) {
    const double part = std::clamp(progress, 0.0, 1.0);
    return part * part * (3 - 2 * part);
}

} // namespace

Puller::Puller(const char* control, const char* target, const Scale& scale, std::vector<Mark> marks)
    : control_(control),
      target_(target),
      scale_(scale),
      marks_(std::move(marks)),
      written_(target_.toFloat()) {
    from_ = scale_.position(written_);
}

void Puller::step(double timeMs) {
    if (target_.toFloat() != written_)
        letGo(timeMs);
    if (timeMs < beginMs_)
        return;
    const Mark& mark = marks_[current_];
    pull(from_ + (mark.position - from_) * eased((timeMs - beginMs_) / mark.moveMs));
    if (timeMs >= beginMs_ + mark.moveMs + mark.holdMs) {
        from_ = mark.position;
        beginMs_ = timeMs;
        current_ = (current_ + 1) % marks_.size();
    }
}

void Puller::letGo(double timeMs) {
    written_ = target_.toFloat();
    from_ = scale_.position(written_);
    beginMs_ = timeMs + AWAY_MS;
}

void Puller::pull(double position) {
    control_.setFloat(position);
    target_.setFloat(scale_.value(position));
    written_ = target_.toFloat();
}
