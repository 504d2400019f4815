#pragma once

#include "apps/common/introspection/catalogue.h"

#include <cstddef>
#include <string>
#include <utility>

/// Splits the body of a set request into a flat list of key and value texts, one nesting level deep: a
/// permissive state machine that reads every character once and does not interpret values. Strings lose their
/// quotes, nested objects and arrays keep their brackets, numbers and words stay as written. There is no
/// escape processing: a backslash is an ordinary character, and a string ends at the next quote of its own
/// kind. Keys hold neither ':' nor white space, quoted or not.
class Json {
public:
    using ObjectValue = JsonObjectValue;

    enum State { Start, KeyStart, InKey, AfterKey, ValueStart, InValue, AfterValue, End, Error };

    /// More pairs than this are an error: each takes many times the memory of its text.
    static constexpr std::size_t MAX_PAIRS = 65536;

    /// Discards earlier results and reads `text`. Returns true when all of it was consumed: a missing closing
    /// bracket is no error, but a value that is incomplete then is dropped. Returns false at the first error,
    /// with its place in errorPosition(). The empty text is valid and has no pairs. REQUIRES: `text` is not a
    /// part of result().
    bool parse(const std::string& text);

    /// Pairs in input order, duplicates kept, without keys when the outermost bracket is that of an array.
    /// After a failed parse: the pairs before the error.
    const JsonObject& result() const { return result_; }

    /// The same, moved out.
    JsonObject takeResult() { return std::exchange(result_, {}); }

    /// Index of the character that parse failed at; -1 when there was no error.
    int errorPosition() const { return errorPosition_; }

    /// The transition of state S, 0 to 7, for one character. Returns the next state. Does not store pairs.
    template <int S>
    State nextChar(char c);

    /// White space is exactly blank, CR, TAB and LF.
    static bool isWhitespace(char c) { return c == ' ' || c == '\r' || c == '\t' || c == '\n'; }
    static bool isString(char c) { return c == '"' || c == '\''; }
    /// The closing bracket of an opening one, 0 for any other character.
    static char isObjectStart(char c) { return c == '[' ? ']' : c == '{' ? '}' : '\0'; }

private:
    State step(char c);
    State nextElement() const { return isArray_ ? ValueStart : KeyStart; }
    bool storePair();

    JsonObject result_;
    std::string key_;
    char keyQuote_ = 0;
    ObjectValue value_;
    char valueOpen_ = 0;  // bracket that deepens a nested value, else 0
    char valueClose_ = 0; // bracket or quote that ends the value, 0 for a bare one
    int depth_ = 0;
    char containerClose_ = 0;
    bool isArray_ = false;
    int errorPosition_ = -1;
    State state_ = Start;
};

template <>
Json::State Json::nextChar<Json::Start>(char c);
template <>
Json::State Json::nextChar<Json::KeyStart>(char c);
template <>
Json::State Json::nextChar<Json::InKey>(char c);
template <>
Json::State Json::nextChar<Json::AfterKey>(char c);
template <>
Json::State Json::nextChar<Json::ValueStart>(char c);
template <>
Json::State Json::nextChar<Json::InValue>(char c);
template <>
Json::State Json::nextChar<Json::AfterValue>(char c);
template <>
Json::State Json::nextChar<Json::End>(char c);
