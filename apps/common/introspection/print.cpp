#include "apps/common/introspection/introspection.h"

#include "apps/common/introspection/jsonstring.h"

#include <optional>
#include <regex>

namespace {

std::optional<std::regex>& escapePattern() {
    static std::optional<std::regex> pattern;
    return pattern;
}

} // namespace

std::string Introspection::printBool(bool value) {
    std::string out = "{ \"value\": \"";
    out += value ? "true" : "false";
    out += "\"";
    out += ", \"type\": \"bool\"";
    out += ", \"textid\": [ \"false\", \"true\" ]";
    out += "}";
    return out;
}

std::string Introspection::printValue(std::string_view value, std::string_view type, std::string_view min,
                                      std::string_view max) {
    std::string out;
    out.reserve(48 + value.size() + type.size() + min.size() + max.size());
    out += "{\"max\":";
    appendJsonString(out, max);
    out += ",\"min\":";
    appendJsonString(out, min);
    out += ",\"type\":";
    appendJsonString(out, type);
    out += ",\"value\":";
    appendJsonString(out, value);
    out += '}';
    return out;
}

void Introspection::setEscapeCharacters(const std::string& pattern) {
    escapePattern().emplace(pattern);
}

std::string Introspection::escape(const std::string& text) {
    const std::optional<std::regex>& pattern = escapePattern();
    return pattern ? std::regex_replace(text, *pattern, "\\$&") : text;
}
