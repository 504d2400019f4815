#include "apps/variables/snapshotfile.h"

#include "apps/common/introspection/introspection.h"
#include "apps/common/introspection/jsonstring.h"
#include "apps/common/introspection/valueconversion.h"
#include "apps/common/values/refusal.h"
#include "apps/variables/clock.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <set>
#include <stdexcept>

namespace {

using Json = nlohmann::json;

constexpr int FORM = 1;
constexpr std::size_t LARGEST_FILE = 16U << 20U;
const Json MISSING(Json::value_t::discarded);

std::string quoted(const std::string& text) {
    std::string out;
    appendJsonString(out, text);
    return out;
}

std::string listText(const VariableId& id) {
    const std::uint32_t count = structureCount(id.descriptor());
    std::string text = "[\n";
    for (std::uint32_t i = 0; i < count; ++i)
        text.append("    ")
            .append(Introspection::getVarValue(id.mem, id.var, static_cast<int>(i)))
            .append(i + 1 < count ? ",\n" : "\n");
    return text + "   ]";
}

std::string valueText(const VariableId& id) {
    const VariableDescriptor& variable = id.descriptor();
    try {
        if (variable.baseType == BaseStruct && variable.isArray != 0)
            return listText(id);
        const std::string text = Introspection::getVarValue(id.mem, id.var, 0);
        return variable.baseType == BaseStruct ? text : quoted(text);
    } catch (const Json::exception&) { // it is not valid UTF-8
        return "null";
    }
}

// `texts` as an object, each member on lines of its own.
std::string objectText(const std::map<std::string, std::string>& texts, const std::string& indent) {
    std::string out = "{";
    for (const auto& [name, text] : texts)
        out.append(out.size() == 1 ? "\n" : ",\n")
            .append(indent)
            .append(" \"")
            .append(name)
            .append("\": ")
            .append(text);
    return out.append("\n").append(indent).append("}");
}

std::string deviceName() {
    return valueText(Reference::parse("MemPersistent.ProductName").variable);
}

std::string contentOf(const std::string& path) {
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path.c_str(), "re"), std::fclose);
    if (file == nullptr)
        throw std::runtime_error(path + ": " + std::strerror(errno));
    std::string text(LARGEST_FILE + 1, '\0');
    text.resize(std::fread(text.data(), 1, text.size(), file.get()));
    if (std::ferror(file.get()) != 0)
        throw std::runtime_error(path + ": " + std::strerror(errno));
    if (text.size() > LARGEST_FILE)
        throw std::runtime_error(path + ": this is not a snapshot, it is too large");
    return text;
}

bool isStructure(const Json& value) {
    return value.is_object() &&
           std::none_of(
               value.begin(), value.end(), [](const Json& member) { return member.is_structured(); });
}

bool isValue(const Json& value) {
    return value.is_string() || value.is_null() || isStructure(value) ||
           (value.is_array() && std::all_of(value.begin(), value.end(), isStructure));
}

bool isMemory(const Json& memory) {
    return memory.is_object() && std::all_of(memory.begin(), memory.end(), isValue);
}

const Json& memberOf(const Json& object, const std::string& key) {
    const auto found = object.find(key);
    return found == object.end() ? MISSING : *found;
}

// The object "memories", MISSING in a document that is not a snapshot. Nothing is copied before it is
// checked, because a copy of deeply nested lists needs as deep a stack.
Json memoriesOf(const Json& document) {
    if (!document.is_object() || memberOf(document, "snapshot") != FORM)
        return MISSING;
    const Json& memories = memberOf(document, "memories");
    return memories.is_object() && std::all_of(memories.begin(), memories.end(), isMemory) ? memories
                                                                                           : MISSING;
}

std::set<std::string> keys(const Json& one, const Json& other) {
    std::set<std::string> all;
    for (const Json* const object : {&one, &other})
        for (const auto& [key, value] : object->items())
            all.insert(key);
    return all;
}

void compare(const std::string& name, const Json& from, const Json& to, std::vector<Difference>& found) {
    if (from == to)
        return;
    if (from.is_object() && to.is_object()) {
        for (const std::string& key : keys(from, to))
            compare(std::string(name).append(".").append(key), memberOf(from, key), memberOf(to, key), found);
    } else if (from.is_array() && to.is_array()) {
        for (std::size_t i = 0; i < std::max(from.size(), to.size()); ++i)
            compare(name + "[" + std::to_string(i) + "]", i < from.size() ? from[i] : MISSING,
                    i < to.size() ? to[i] : MISSING, found);
    } else {
        found.push_back({name, from, to});
    }
}

// Numbers and booleans without the quotes of their texts.
std::string shown(const Json& value) {
    if (value.is_discarded())
        return "not there";
    if (value.is_string()) {
        const Json content = Json::parse(value.get_ref<const std::string&>(), nullptr, false);
        if (content.is_number() || content.is_boolean())
            return value;
    }
    return value.dump();
}

} // namespace

std::string snapshotText(const std::vector<VariableId>& variables) {
    std::map<std::string, std::map<std::string, std::string>> values;
    for (const VariableId& id : variables)
        values[MEMORY_ARRAY[id.mem].name][id.descriptor().name] = valueText(id);
    std::map<std::string, std::string> memories;
    for (const auto& [memory, texts] : values)
        memories[memory] = objectText(texts, "  ");
    return "{\n \"snapshot\": " + std::to_string(FORM) + ",\n \"device\": " + deviceName() +
           ",\n \"taken\": \"" + universalTime(std::chrono::system_clock::now()) +
           "\",\n \"memories\": " + objectText(memories, " ") + "\n}\n";
}

Json readSnapshot(const std::string& path) {
    Json memories = memoriesOf(Json::parse(contentOf(path), nullptr, false));
    if (memories.is_discarded())
        throw std::runtime_error(path + ": this is not a snapshot of version 1");
    return memories;
}

Json presentValues(const Json& memories) {
    std::vector<VariableId> known;
    for (const VariableId& id : matchingVariables({})) {
        const auto memory = memories.find(std::string(MEMORY_ARRAY[id.mem].name));
        if (memory != memories.end() && memory->contains(id.descriptor().name))
            known.push_back(id);
    }
    return memoriesOf(Json::parse(snapshotText(known)));
}

std::string Difference::text() const {
    return name + "  " + shown(from) + " -> " + shown(to);
}

std::vector<Difference> differences(const Json& from, const Json& to) {
    std::vector<Difference> found;
    for (const std::string& memory : keys(from, to)) {
        const Json& before = memberOf(from, memory);
        const Json& after = memberOf(to, memory);
        compare(memory, before.is_object() ? before : Json::object(),
                after.is_object() ? after : Json::object(), found);
    }
    return found;
}
