#include "apps/web/service/json.h"

#include <utility>

template <>
Json::State Json::nextChar<Json::START>(char c) {
    containerClose_ = isObjectStart(c);
    if (containerClose_ == 0)
        return ERROR;
    isArray_ = c == '[';
    return nextElement();
}

template <>
Json::State Json::nextChar<Json::KEY_START>(char c) {
    keyQuote_ = isString(c) ? c : '\0';
    if (keyQuote_ == 0)
        key_ += c;
    return IN_KEY;
}

template <>
Json::State Json::nextChar<Json::IN_KEY>(char c) {
    if (c == ':')
        return VALUE_START;
    if (isWhitespace(c) || (keyQuote_ != 0 && c == keyQuote_))
        return AFTER_KEY;
    key_ += c;
    return IN_KEY;
}

template <>
Json::State Json::nextChar<Json::AFTER_KEY>(char c) {
    return c == ':' ? VALUE_START : ERROR;
}

template <>
Json::State Json::nextChar<Json::VALUE_START>(char c) {
    const char close = isObjectStart(c);
    value_.isNested = close != 0;
    valueOpen_ = close != 0 ? c : '\0';
    valueClose_ = isString(c) ? c : close;
    depth_ = 1;
    if (!isString(c))
        value_.text += c;
    return IN_VALUE;
}

template <>
Json::State Json::nextChar<Json::IN_VALUE>(char c) {
    if (valueClose_ == 0) {
        if (isWhitespace(c))
            return AFTER_VALUE;
        if (c == ',')
            return nextElement();
        if (c == containerClose_)
            return END;
    } else if (c == valueClose_ && --depth_ == 0) {
        if (value_.isNested)
            value_.text += c;
        return AFTER_VALUE;
    } else if (valueOpen_ != 0 && c == valueOpen_) {
        ++depth_;
    }
    value_.text += c;
    return IN_VALUE;
}

template <>
Json::State Json::nextChar<Json::AFTER_VALUE>(char c) {
    if (c == ',')
        return nextElement();
    return c == containerClose_ ? END : ERROR;
}

template <>
Json::State Json::nextChar<Json::END>(char /*c*/) {
    return ERROR; // white space does not reach it
}

Json::State Json::step(char c) {
    if (state_ == IN_VALUE) // first: nearly every character of a large body
        return nextChar<IN_VALUE>(c);
    if (state_ != IN_KEY && isWhitespace(c))
        return state_;
    switch (state_) {
    case START:
        return nextChar<START>(c);
    case KEY_START:
        return nextChar<KEY_START>(c);
    case IN_KEY:
        return nextChar<IN_KEY>(c);
    case AFTER_KEY:
        return nextChar<AFTER_KEY>(c);
    case VALUE_START:
        return nextChar<VALUE_START>(c);
    case AFTER_VALUE:
        return nextChar<AFTER_VALUE>(c);
    default:
        return nextChar<END>(c);
    }
}

bool Json::storePair() {
    if (result_.size() == MAX_PAIRS)
        return false;
    result_.emplace_back(std::exchange(key_, {}), std::exchange(value_, {}));
    valueOpen_ = valueClose_ = 0;
    return true;
}

bool Json::parse(const std::string& text) {
    *this = Json();
    for (std::size_t i = 0; i < text.size(); ++i) {
        const State previous = std::exchange(state_, step(text[i]));
        const bool valueEnded = previous == IN_VALUE && state_ != IN_VALUE;
        if (state_ == ERROR || (valueEnded && !storePair())) {
            errorPosition_ = static_cast<int>(i);
            return false;
        }
    }
    return true;
}
