#include "apps/common/diagnostics/diagnostics.h"
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

    void fill(const std::function<char()>& byte) {
        for (std::uint32_t mem = 0; mem < MEMORY_ARRAY_SIZE; ++mem)
            std::generate_n(memories.base(mem), MEMORY_ARRAY[mem].size, byte);
    }

    static bool isStructure(const Variable& variable) { return variable.row().baseType == BaseStruct; }

    // Reads every element. A structure fails only to print text that is not UTF-8.
    void readAll() {
        forEach([&](const Variable& variable) {
            const std::uint32_t count = isStructure(variable) ? structureCount(variable.row()) : 1;
            for (std::uint32_t i = 0; i < count; ++i) {
                try {
                    const std::string text = get(variable, static_cast<int>(i));
                    EXPECT_TRUE(!isStructure(variable) || nlohmann::json::accept(text)) << text;
                } catch (const nlohmann::json::type_error&) {
                }
            }
        });
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

    std::mt19937 random{1};
};

TEST_F(Sweep, GettersReadAnyBytes) {
    gen::LogLevel silent = static_cast<gen::LogLevel>(8);
    gComponentLogLevel = &silent;
    readAll();
    for (int i = 0; i < 10; ++i) {
        const unsigned int mask = i % 2 == 0 ? 0xff : 0x7f;
        fill([this, mask] { return static_cast<char>(random() & mask); });
        readAll();
    }
    gComponentLogLevel = nullptr;
}

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
    const std::string values[] = {"",
                                  "7",
                                  "-1",
                                  "0x7fffffff",
                                  "1e30",
                                  "true",
                                  "Off",
                                  "{}",
                                  "%s%n",
                                  "\xff\xfe",
                                  std::string(5000, 'f'),
                                  std::string(5000, '\xe2')};
    fill([this] { return static_cast<char>(random()); });
    forEach([&](const Variable& variable) {
        for (const std::string& value : values)
            expectContained(variable, [&] { set(variable, value.c_str()); });
        const int count = static_cast<int>(structureCount(variable.row()));
        std::memset(address(variable), 0, variable.row().size);
        const auto element = nlohmann::json::parse(isStructure(variable) ? get(variable) : "{\"\":0}");
        for (const auto& member : element.items())
            for (const int index : {0, count - 1, count, -1, Limits::max(), Limits::min()})
                for (const std::string& value : {values[1], values[5], values[10]})
                    expectContained(variable, [&] {
                        const std::string error = Introspection::setVarValueJson(
                            variable.mem, variable.var, {{member.key(), {value, false}}}, index);
                        const bool isElement = isStructure(variable) && index >= 0 && index < count;
                        EXPECT_TRUE(isElement || !error.empty()) << variable.row().name;
                    });
        variable.row().event.arg2 = 0;
    });
}

} // namespace
