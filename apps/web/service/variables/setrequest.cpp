#include "apps/web/service/variables/setrequest.h"

#include "apps/web/service/variables/json.h"

#include <ostream>
#include <utility>

bool SetRequest::parse(const std::string& body, std::ostream& errors) {
    Json json;
    std::string nested;
    const std::string* text = &body;
    for (int level = 0; level < MAX_NESTING; ++level) {
        if (!json.parse(*text)) {
            errors << "JSON parse error at " << json.errorPosition() << ".\r\n";
            return false;
        }
        pairs = json.takeResult();
        if (pairs.empty())
            return true;
        if (level == 0)
            memory = pairs.front().first;
        else if (variable.empty())
            variable = pairs.back().first;
        if (!pairs.back().second.isNested)
            return true;
        nested = std::move(pairs.back().second.text);
        text = &nested;
    }
    errors << "Nested deeper than " << MAX_NESTING << " levels.\r\n";
    return false;
}

bool SetRequest::hasValue() const {
    return !pairs.empty() && !(pairs.size() == 1 && pairs.front().first == "Index");
}

int SetRequest::elementIndex() const {
    int index = 0;
    for (const auto& [key, value] : pairs)
        if (key == "Index")
            index = std::stoi(value.text);
    return index;
}
