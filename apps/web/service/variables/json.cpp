#include "apps/web/service/variables/json.h"

#include <utility>

template <>
Json::State Json::nextChar<Json::Start>(char c) {
    containerClose_ = isObjectStart(c);
    if (containerClose_ == 0)
        return Error;
    isArray_ = isArray_ || c == '[';
    return nextElement();
}

template <>
Json::State Json::nextChar<Json::KeyStart>(char c) {
    keyQuote_ = isString(c) ? c : '\0';
    if (keyQuote_ == 0)
        key_ += c;
    return InKey;
}

template <>
Json::State Json::nextChar<Json::InKey>(char c) {
    if (c == ':' && valueClose_ == 0)
        return ValueStart;
    if ((isWhitespace(c) && valueClose_ == 0) || (keyQuote_ != 0 && c == keyQuote_))
        return AfterKey;
    key_ += c;
    return InKey;
}

template <>
Json::State Json::nextChar<Json::AfterKey>(char c) {
    return c == ':' ? ValueStart : Error;
}

template <>
Json::State Json::nextChar<Json::ValueStart>(char c) {
    const char close = isObjectStart(c);
    value_.isNested = close != 0;
    valueOpen_ = close != 0 ? c : '\0';
    valueClose_ = isString(c) ? c : close;
    depth_ = 1;
    if (!isString(c))
        value_.text += c;
    return InValue;
}

template <>
Json::State Json::nextChar<Json::InValue>(char c) {
    if (valueClose_ == 0) {
        if (isWhitespace(c))
            return AfterValue;
        if (c == ',')
            return nextElement();
        if (c == containerClose_)
            return End;
    } else if (c == valueClose_ && --depth_ == 0) {
        if (value_.isNested)
            value_.text += c;
        return AfterValue;
    } else if (valueOpen_ != 0 && c == valueOpen_) {
        ++depth_;
    }
    value_.text += c;
    return InValue;
}

template <>
Json::State Json::nextChar<Json::AfterValue>(char c) {
    if (c == ',')
        return nextElement();
    return c == containerClose_ ? End : Error;
}

template <>
Json::State Json::nextChar<Json::End>(char c) {
    return isWhitespace(c) ? End : Error;
}

Json::State Json::step(char c) {
    if (state_ == InValue) // first: nearly every character of a large body
        return nextChar<InValue>(c);
    if (state_ != InKey && isWhitespace(c))
        return state_;
    switch (state_) {
    case Start:
        return nextChar<Start>(c);
    case KeyStart:
        return nextChar<KeyStart>(c);
    case InKey:
        return nextChar<InKey>(c);
    case AfterKey:
        return nextChar<AfterKey>(c);
    case ValueStart:
        return nextChar<ValueStart>(c);
    case AfterValue:
        return nextChar<AfterValue>(c);
    default:
        return nextChar<End>(c);
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
        const bool valueEnded = previous == InValue && state_ != InValue;
        if (state_ == Error || (valueEnded && !storePair())) {
            errorPosition_ = static_cast<int>(i);
            return false;
        }
    }
    return true;
}
