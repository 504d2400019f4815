#pragma once

#include <string>
#include <string_view>

/// A text of the generated catalogue, or null. It compares and prints as text, null as the empty text, and
/// lives as long as the process.
class CatalogueText : public std::string_view {
public:
    /// REQUIRES: a zero-terminated text that lives as long as the process, or null.
    constexpr CatalogueText(const char* text)
        : std::string_view(text != nullptr ? std::string_view(text) : std::string_view()) {}

    /// Zero-terminated; null if there is no text.
    constexpr const char* c_str() const { return data(); }

    operator std::string() const { return std::string(data(), size()); }
    // Not const: a type whose constant objects convert to const char* does not count as a string_view in
    // std::string's functions.
    constexpr operator const char*() { return data(); }

    friend constexpr bool operator==(const CatalogueText& text, const char* other) {
        return other == nullptr ? text.data() == nullptr : std::string_view(text) == other;
    }
    friend std::string operator+(std::string front, const CatalogueText& text) { return front.append(text); }
};
