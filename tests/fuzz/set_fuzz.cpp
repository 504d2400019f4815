#include "apps/common/values/check.h"
#include "apps/common/values/refusal.h"
#include "apps/common/values/variablejson.h"
#include "apps/web/service/variables/json.h"
#include "apps/web/service/variables/setrequest.h"
#include "target.h"
#include "tests/unit/introspection/fixture.h"

#include <nlohmann/json.hpp>
#include <sstream>

// The body of a set request: the splitter against a literal state machine, then the setters and getters
// behind it.

namespace {

struct Literal {
    JsonObject pairs;
    int error = -1;
};

// The states, by number: start, key start, in key, behind key, value start, in value, behind value, end,
// error.
Literal literalParse(std::string_view text) {
    Literal result;
    std::string key;
    JsonObjectValue value;
    char quote = 0, open = 0, close = 0, container = 0;
    int depth = 0;
    for (int i = 0, state = 0; i < std::ssize(text) && state != 8; ++i) {
        const char c = text[static_cast<std::size_t>(i)];
        const int before = state;
        const bool isBlank = c == ' ' || c == '\r' || c == '\t' || c == '\n';
        const bool isQuote = c == '"' || c == '\'';
        const int nextPair = container == ']' ? 4 : 1;
        const int behindValue = c == ',' ? nextPair : c == container ? 7 : 8;
        if (isBlank && state != 2 && state != 5)
            continue;
        if (state == 0) {
            container = c == '[' ? ']' : '}';
            state = c == '[' ? 4 : c == '{' ? 1 : 8;
        } else if (state == 1) {
            quote = isQuote ? c : '\0';
            key = isQuote ? "" : std::string(1, c);
            state = 2;
        } else if (state == 2) {
            state = c == ':' ? 4 : isBlank || (quote != 0 && c == quote) ? 3 : 2;
            key += state == 2 ? std::string(1, c) : "";
        } else if (state == 3) {
            state = c == ':' ? 4 : 8;
        } else if (state == 4) {
            value = {isQuote ? "" : std::string(1, c), c == '[' || c == '{'};
            close = c == '[' ? ']' : c == '{' ? '}' : isQuote ? c : '\0';
            open = c;
            depth = 1;
            state = 5;
        } else if (state == 5 && close == 0 && (isBlank || behindValue != 8)) {
            state = isBlank ? 6 : behindValue;
        } else if (state == 5) {
            depth += value.isNested && c == open ? 1 : close != 0 && c == close ? -1 : 0;
            state = depth == 0 ? 6 : 5;
            value.text += state == 5 || value.isNested ? std::string(1, c) : "";
        } else {
            state = state == 6 ? behindValue : 8;
        }
        if (before == 5 && state != 5)
            result.pairs.emplace_back(std::exchange(key, {}), value);
        result.error = state == 8 ? i : -1;
    }
    return result;
}

// The value can be read back, and the text that is read can be set again.
void readBack(const VariableId& id, int index) {
    const std::string json = valueJson(id.mem, id.var, index);
    try {
        const std::string text = Introspection::getVarValue(id.mem, id.var, index);
        Introspection::setVarValue(id.mem, id.var, text.c_str());
        EXPECT_EQ(Introspection::getVarValue(id.mem, id.var, index), text);
        EXPECT_EQ(valueJson(id.mem, id.var, index), json);
    } catch (const std::exception&) {
        EXPECT_TRUE(json.starts_with(R"("ERROR")")) << json; // no such element, or a text that is not UTF-8
    }
}

// A value that the checks of other programs take can be set.
void setChecked(const VariableId& id, const std::string& value) {
    nlohmann::json json = nlohmann::json::parse(value, nullptr, false);
    if (json.is_discarded())
        json = value;
    try {
        const std::string text = acceptedText(Acceptance::ofVariable(id), "x", json);
        EXPECT_EQ(Introspection::setVarValue(id.mem, id.var, text.c_str()), "");
    } catch (const Refusal&) { // nothing is set
    }
}

} // namespace

void handle(std::string_view input) {
    static Memories memories;
    static const PostedEvents events;
    const std::string body(input);
    Json json;
    const Literal literal = literalParse(body);
    EXPECT_EQ(json.parse(body), literal.error < 0);
    EXPECT_EQ(json.errorPosition(), literal.error);
    EXPECT_TRUE(std::equal(json.result().begin(), json.result().end(), literal.pairs.begin(),
                           literal.pairs.end(), [](const auto& left, const auto& right) {
                               return left.first == right.first && left.second.text == right.second.text &&
                                      left.second.isNested == right.second.isNested;
                           }));
    SetRequest request;
    std::ostringstream errors;
    if (!request.parse(body, errors) || !request.hasValue() || !request.apply())
        return;
    const std::uint32_t mem = Introspection::getMemIndex(request.memory);
    VariableId id{mem, 0};
    while (request.variable != id.descriptor().name)
        ++id.var;
    const bool isStructure = id.descriptor().baseType == BaseStruct;
    readBack(id, isStructure ? request.elementIndex() : 0);
    if (!isStructure)
        setChecked(id, request.pairs.back().second.text);
    else
        Introspection::setVarValue(mem, id.var, body.c_str());
    events.take();
    std::memset(memories.base(mem), 0, MEMORY_ARRAY[mem].size);
}
