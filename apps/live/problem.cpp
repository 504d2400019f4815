#include "apps/live/problem.h"

#include "apps/common/introspection/introspection.h"
#include "apps/common/values/check.h"

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

void addLimits(Json& error, const Acceptance& acceptance) {
    switch (acceptance.baseType) {
    case BaseInt:
    case BaseFloat:
        error["min"] = Json::parse(acceptance.min);
        error["max"] = Json::parse(acceptance.max);
        break;
    case BaseEnum:
        for (std::uint32_t i = 0; i < acceptance.enumeration->entryCount; ++i)
            error["entries"].push_back(acceptance.enumeration->entries[i]);
        break;
    case BaseString:
    case BaseBuffer:
        error["min"] = 0;
        error["max"] = acceptance.baseType == BaseString ? acceptance.capacity - 1 : acceptance.capacity;
        break;
    default:
        break;
    }
}

Json shown(const Json& given) {
    const std::string text = documentText(given);
    return text.size() <= SHOWN_BYTES ? given : Json(text.substr(0, SHOWN_BYTES) + "...");
}

} // namespace

HttpAnswer Problem::answer() const {
    Json document = {
        {"type", "about:blank"}, {"title", reasonPhrase(status_)}, {"status", status_}, {"detail", what()}};
    if (!errors_.empty())
        document["errors"] = Json::parse(errors_);
    return {status_, "application/problem+json", "Cache-Control: no-store\r\n" + headers_,
            documentText(document)};
}

Json refusalJson(const std::string& name, const Refusal& refusal, const Json* given) {
    Json error = {{"variable", name}, {"code", refusal.code()}, {"message", refusal.what()}};
    if (given != nullptr)
        error["given"] = shown(*given);
    if (const std::optional<Acceptance> acceptance = acceptanceOf(name))
        addLimits(error, *acceptance);
    return error;
}

std::string documentText(const Json& document) {
    return document.dump(-1, ' ', false, Json::error_handler_t::replace);
}
