#include "apps/live/patch.h"

#include "apps/common/event/serverconnection.h"
#include "apps/common/introspection/jsonstring.h"
#include "apps/common/introspection/valueconversion.h"
#include "apps/common/values/checkedset.h"
#include "apps/common/values/readablevalue.h"
#include "apps/live/changes.h"
#include "apps/live/presentvalues.h"
#include "apps/live/problem.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <set>
#include <stdexcept>
#include <utility>
#include <vector>

namespace {

using Json = nlohmann::json;

constexpr std::size_t MOST_ERRORS = 1000;

// One name of the body, checked.
struct Entry {
    Reference reference;
    CheckedSet value;
};

// The names of all objects in the value.
std::size_t countNames(const Json& value) {
    std::size_t count = value.is_object() ? value.size() : 0;
    if (value.is_structured())
        for (const Json& part : value)
            count += countNames(part);
    return count;
}

// Counts the names of a JSON text. Refuses one that is too deep, because handling a deep value needs a stack
// frame for each level, or has too many names or values, which need a hundred bytes each. A callback of the
// library's parser could do so, but with a callback the parser goes through all of an array after each object
// in it.
std::size_t namesIn(const std::string& text) {
    std::size_t names = 0;
    std::size_t commas = 0;
    int depth = 0;
    int deepest = 0;
    bool isInString = false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char character = text[i];
        if (character == '"')
            isInString = !isInString;
        else if (isInString)
            i += character == '\\' ? 1 : 0;
        else if (character == '{' || character == '[')
            deepest = std::max(deepest, ++depth);
        else if (character == '}' || character == ']')
            --depth;
        names += !isInString && character == ':' ? 1 : 0;
        commas += !isInString && character == ',' ? 1 : 0;
    }
    if (deepest > Patch::MAX_DEPTH)
        throw Problem(413, "The values are nested too deeply");
    if (std::max(names, commas) > Patch::MAX_NAMES)
        throw Problem(413,
                      "At most " + std::to_string(Patch::MAX_NAMES) + " names and values fit into a request");
    return names;
}

// Of a name that occurs twice the parser keeps the last value, and the others would never be checked.
Json parsed(const std::string& body) {
    const std::size_t names = namesIn(body);
    if (body.find('\0') != std::string::npos) // the parser ends there
        throw Problem(400, "The body is not JSON: it has a zero character");
    Json document;
    try {
        document = Json::parse(body);
    } catch (const Json::exception& error) {
        throw Problem(400, std::string("The body is not JSON: ") + error.what());
    }
    if (!document.is_object())
        throw Problem(400, "The body is not an object of names and values");
    if (countNames(document) != names)
        throw Problem(400, "The body has a name twice in the same object");
    return document;
}

class Errors {
public:
    // Throws like throwIfAny when the list is full.
    void add(const std::string& name, const Refusal& refusal, const Json& given) {
        list_ += (list_.empty() ? "" : ",") + refusalJson(name, refusal, &given);
        if (++count_ == MOST_ERRORS)
            throwIfAny();
    }

    void throwIfAny() const {
        if (!list_.empty())
            throw Problem(422, "Nothing has been stored", list_);
    }

private:
    std::string list_;
    std::size_t count_ = 0;
};

// Checks the value in parts, so that each refused one has an error of its own.
void check(const std::string& name, const Json& value, Errors& errors);

bool checkParts(const std::string& name, const Json& value, Errors& errors) {
    const Reference reference = Reference::parse(name);
    const VariableDescriptor& variable = reference.variable.descriptor();
    if (variable.baseType != BaseStruct || reference.member != nullptr)
        return false;
    const bool isArray = variable.isArray != 0 && !reference.element;
    if (isArray && value.is_array() && value.size() == structureCount(variable)) {
        for (std::size_t i = 0; i < value.size(); ++i)
            check(name + "[" + std::to_string(i) + "]", value[i], errors);
        return true;
    }
    if (!isArray && value.is_object()) {
        const std::string prefix = name + ".";
        for (const auto& [key, part] : value.items())
            check(prefix + key, part, errors);
        return true;
    }
    return false;
}

void check(const std::string& name, const Json& value, Errors& errors) {
    try {
        if (!checkParts(name, value, errors))
            CheckedSet().add(name, value);
    } catch (const Refusal& refusal) {
        errors.add(name, refusal, value);
    }
}

// The names of the element and of the variable that contain a member or an element.
std::vector<std::string> wholes(Reference reference) {
    std::vector<std::string> names;
    if (std::exchange(reference.member, nullptr) != nullptr)
        names.push_back(reference.name());
    if (std::exchange(reference.element, std::nullopt))
        names.push_back(reference.name());
    return names;
}

// Of two values for the same place the client would not know which one is stored.
void requireDistinct(const std::vector<Entry>& entries) {
    std::set<std::string> names;
    for (const Entry& entry : entries)
        if (const std::string name = entry.reference.name(); !names.insert(name).second)
            throw Problem(400, "The body has " + name + " twice");
    for (const Entry& entry : entries)
        for (const std::string& whole : wholes(entry.reference))
            if (names.contains(whole))
                throw Problem(400,
                              "The body has " + whole + " and " + entry.reference.name() + ", a part of it");
}

std::vector<Entry> checked(const Json& document) {
    Errors errors;
    for (const auto& [name, value] : document.items())
        check(name, value, errors);
    errors.throwIfAny();
    std::vector<Entry> entries;
    for (const auto& [name, value] : document.items()) {
        entries.push_back({Reference::parse(name), {}});
        entries.back().value.add(name, value);
    }
    requireDistinct(entries);
    return entries;
}

void requireUnchanged(const std::vector<Entry>& entries, const Changes& changes, std::uint64_t since) {
    std::string changed;
    for (const Entry& entry : entries) {
        const std::uint64_t version = changes.of(PresentValues::numberOf(entry.reference.variable));
        const std::string name = entry.reference.name();
        if (version > since)
            changed.append(changed.empty() ? "" : ",")
                .append(R"({"variable":")")
                .append(name)
                .append(R"(","code":"changed","version":)")
                .append(std::to_string(version))
                .append(R"(,"value":)")
                .append(readableValue(entry.reference, *entry.reference.variable.descriptor().memory))
                .append(R"(,"message":")")
                .append(name)
                .append(R"( has changed"})");
    }
    if (!changed.empty())
        throw Problem(412, "Nothing has been stored", changed);
}

std::uint64_t postedEvents() {
    return gServerConnection == nullptr ? 0 : gServerConnection->posted();
}

} // namespace

Patch::Stored Patch::apply(const std::string& body, std::optional<std::uint64_t> unchangedSince) {
    const std::vector<Entry> entries = checked(parsed(body));
    if (unchangedSince)
        requireUnchanged(entries, changes_, *unchangedSince);
    std::string failure;
    Stored stored{"{", entries.size()};
    for (const Entry& entry : entries) {
        const VariableNumber number = PresentValues::numberOf(entry.reference.variable);
        stored.variables.set(number);
        if (const std::string reason = store(number, entry.value); failure.empty())
            failure = reason;
    }
    if (!failure.empty())
        throw Problem(500, "The values are stored, but an event could not be posted: " + failure);
    for (const Entry& entry : entries) {
        stored.document += stored.document.size() > 1 ? "," : "";
        appendJsonString(stored.document, entry.reference.name());
        stored.document +=
            ":" + readableValue(entry.reference, *entry.reference.variable.descriptor().memory);
    }
    stored.document += "}";
    return stored;
}

// Without an event the device's other processes do not learn of the change, but this process's clients do.
std::string Patch::store(VariableNumber number, const CheckedSet& value) {
    std::string failure;
    const std::uint64_t before = postedEvents();
    try {
        value.store();
    } catch (const std::runtime_error& error) {
        failure = error.what();
    }
    const auto events = static_cast<std::uint32_t>(postedEvents() - before);
    if (events == 0 && failure.empty()) // the value was there before
        return failure;
    changes_.mark(number);
    changes_.expectEchoes(number, events);
    changed_(number);
    return failure;
}
