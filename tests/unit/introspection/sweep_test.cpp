#include "apps/common/introspection/valueconversion.h"
#include "tests/unit/introspection/fixture.h"

#include <nlohmann/json.hpp>

#include <cstring>
#include <functional>
#include <limits>
#include <random>

namespace {

// Visits all variables of the catalogue. The sanitizer reports accesses outside a memory.
class Sweep : public MappedCatalogue {
protected:
    static void forEach(const std::function<void(const Variable&)>& visit) {
        for (const MemoryDescriptor& memory : MEMORY_ARRAY)
            for (std::uint32_t var = 0; var < memory.count; ++var)
                visit(Variable(memory.variables[var].name));
    }

    // Expects that `change` changes no byte outside the variable and posts at most once.
    void expectContained(const Variable& variable, const std::function<void()>& change) {
        std::string expected = memories.bytes(variable.mem);
        change();
        const VariableDescriptor& row = variable.row();
        expected.replace(row.location, row.size, address(variable), row.size);
        EXPECT_EQ(memories.bytes(variable.mem), expected) << row.name;
        EXPECT_LE(posts(), 1U) << row.name;
    }
};

TEST_F(Sweep, ValuesCanBeSetBackWithoutChange) {
    forEach([&](const Variable& variable) {
        const std::string before = memories.bytes(variable.mem);
        EXPECT_EQ(set(variable, get(variable).c_str()), "") << variable.row().name;
        EXPECT_EQ(memories.bytes(variable.mem), before) << variable.row().name;
        const int type = variable.row().baseType;
        EXPECT_EQ(posts(), type == BaseString || type == BaseBuffer ? 1U : 0U) << variable.row().name;
    });
}

TEST_F(Sweep, HostileValuesChangeOnlyTheirVariable) {
    using Limits = std::numeric_limits<int>;
    std::vector<std::string> values = {"", "7", "-1", "0x7fffffff", "1e30", "true", "{}", "%s%n", "\xff\xfe"};
    for (const char c : {'f', '\xe2'})
        values.emplace_back(5000, c);
    std::mt19937 random{1};
    for (std::uint32_t mem = 0; mem < MEMORY_ARRAY_SIZE; ++mem)
        std::generate_n(memories.base(mem), MEMORY_ARRAY[mem].size, std::ref(random));
    forEach([&](const Variable& variable) {
        for (const std::string& value : values)
            expectContained(variable, [&] { set(variable, value.c_str()); });
        const int count = static_cast<int>(structureCount(variable.row()));
        std::memset(address(variable), 0, variable.row().size);
        const bool isStructure = variable.row().baseType == BaseStruct;
        const auto element = nlohmann::json::parse(isStructure ? get(variable) : "{\"\":0}");
        for (const auto& member : element.items())
            for (const int index : {0, count - 1, count, -1, Limits::max(), Limits::min()})
                for (const char* value : {"7", "true", values.back().c_str()})
                    expectContained(variable, [&] {
                        const std::string error = Introspection::setVarValueJson(
                            variable.mem, variable.var, {{member.key(), {value, false}}}, index);
                        const bool isElement = isStructure && index >= 0 && index < count;
                        EXPECT_TRUE(isElement || !error.empty()) << variable.row().name;
                    });
        variable.row().event.arg2 = 0;
    });
}

} // namespace
