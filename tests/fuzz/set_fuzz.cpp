#include "apps/web/service/variables/json.h"
#include "apps/web/service/variables/setrequest.h"
#include "target.h"
#include "tests/unit/introspection/fixture.h"

#include <sstream>

// The body of a set request: the splitter against a literal state machine, then the setters behind it.

namespace {

struct Literal {
    JsonObject pairs;
    int error = -1;

    std::string key, value;
    char keyQuote = 0, open = 0, close = 0, container = 0;
    bool isNested = false, isArray = false;
    int depth = 0;

    static bool isBlank(char c) { return std::string_view(" \r\t\n").find(c) != std::string_view::npos; }
    static bool isQuote(char c) { return c == '"' || c == '\''; }
    int nextPair() const { return isArray ? 4 : 1; }

    int start(char c) {
        isArray = c == '[';
        container = isArray ? ']' : '}';
        return isArray || c == '{' ? nextPair() : 8;
    }
    int keyStart(char c) {
        keyQuote = isQuote(c) ? c : '\0';
        if (keyQuote == 0)
            key += c;
        return 2;
    }
    int inKey(char c) {
        if (c == ':')
            return 4;
        if (isBlank(c) || (keyQuote != 0 && c == keyQuote))
            return 3;
        key += c;
        return 2;
    }
    int valueStart(char c) {
        isNested = c == '[' || c == '{';
        open = isNested ? c : '\0';
        close = c == '[' ? ']' : c == '{' ? '}' : isQuote(c) ? c : '\0';
        depth = 1;
        if (!isQuote(c))
            value += c;
        return 5;
    }
    int inValue(char c) {
        if (close == 0 && (isBlank(c) || c == ',' || c == container))
            return isBlank(c) ? 6 : afterValue(c);
        if (isNested && c == open)
            ++depth;
        const bool isEnd = close != 0 && c == close && --depth == 0;
        if (!isEnd || isNested)
            value += c;
        return isEnd ? 6 : 5;
    }
    int afterValue(char c) const { return c == ',' ? nextPair() : c == container ? 7 : 8; }

    int step(int state, char c) {
        if (state != 2 && state != 5 && isBlank(c))
            return state;
        switch (state) {
        case 0:
            return start(c);
        case 1:
            return keyStart(c);
        case 2:
            return inKey(c);
        case 3:
            return c == ':' ? 4 : 8;
        case 4:
            return valueStart(c);
        case 5:
            return inValue(c);
        case 6:
            return afterValue(c);
        default:
            return 8;
        }
    }

    void parse(std::string_view text) {
        int state = 0;
        for (std::size_t i = 0; i < text.size() && state != 8; ++i) {
            const int before = state;
            state = step(state, text[i]);
            if (before == 5 && state != 5) {
                pairs.emplace_back(key, JsonObjectValue{value, isNested});
                key.clear();
                value.clear();
            }
            error = state == 8 ? static_cast<int>(i) : -1;
        }
    }
};

} // namespace

void handle(std::string_view input) {
    static Memories memories;
    static const PostedEvents events;
    const std::string body(input);
    Json json;
    Literal literal;
    literal.parse(body);
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
    events.take();
    const std::uint32_t mem = Introspection::getMemIndex(request.memory);
    std::memset(memories.base(mem), 0, MEMORY_ARRAY[mem].size);
}
