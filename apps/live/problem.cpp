#include "apps/live/problem.h"

#include "apps/common/introspection/introspection.h"
#include "apps/common/values/check.h"
#include "apps/common/values/excerpt.h"

#include <nlohmann/json.hpp>

#include <optional>
#include <string_view>

namespace {

using Json = nlohmann::json;

constexpr std::size_t SHOWN_BYTES = 200;

// What the named variable or member accepts; nothing for a structure and for an unknown name.
std::optional<Acceptance> acceptanceOf(const std::string& name) {
    try {
        const Reference reference = Reference::parse(name);
        if (reference.member != nullptr)
            return Acceptance::ofMember(*reference.member);
        if (reference.variable.descriptor().baseType != BaseStruct)
            return Acceptance::ofVariable(reference.variable);
    } catch (const Refusal&) {
        return std::nullopt;
    }
    return std::nullopt;
}

std::string quoted(const std::string& text) {
    return documentText(Json(text));
}

void append(std::string& out, const char* name, const std::string& json) {
    out.append(out.back() == '{' ? "\"" : ",\"").append(name).append("\":").append(json);
}

std::string entryList(const EnumDescriptor& enumeration) {
    std::string list = "[";
    for (std::uint32_t i = 0; i < enumeration.entryCount; ++i)
        list += (i == 0 ? "" : ",") + quoted(enumeration.entries[i]);
    return list + "]";
}

void appendLimits(std::string& out, const Acceptance& acceptance) {
    const bool isText = acceptance.baseType == BaseString;
    switch (acceptance.baseType) {
    case BaseInt:
    case BaseFloat:
        append(out, "min", acceptance.min);
        return append(out, "max", acceptance.max);
    case BaseEnum:
        return append(out, "entries", entryList(*acceptance.enumeration));
    case BaseString:
    case BaseBuffer:
        append(out, "min", "0");
        return append(out, "max", std::to_string(isText ? acceptance.capacity - 1 : acceptance.capacity));
    default:
        return;
    }
}

std::string shown(const Json& given) {
    const std::string text = documentText(given);
    return text.size() <= SHOWN_BYTES ? text : quoted(excerpt(text, SHOWN_BYTES));
}

} // namespace

HttpAnswer Problem::answer() const {
    std::string document = "{";
    append(document, "type", "\"about:blank\"");
    append(document, "title", quoted(reasonPhrase(status_)));
    append(document, "status", std::to_string(status_));
    append(document, "detail", quoted(what()));
    if (!errors_.empty())
        append(document, "errors", "[" + errors_ + "]");
    return {status_, "application/problem+json", "Cache-Control: no-store\r\n" + headers_, document + "}"};
}

std::string refusalJson(const std::string& name, const Refusal& refusal, const Json* given) {
    std::string error = "{";
    append(error, "variable", quoted(excerpt(name, SHOWN_BYTES)));
    append(error, "code", quoted(refusal.code()));
    if (given != nullptr)
        append(error, "given", shown(*given));
    if (const std::optional<Acceptance> acceptance = acceptanceOf(name))
        appendLimits(error, *acceptance);
    append(error, "message", quoted(refusal.what()));
    return error + "}";
}

std::string documentText(const Json& document) {
    return document.dump(-1, ' ', false, Json::error_handler_t::replace);
}
