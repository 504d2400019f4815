#include "apps/common/diagnostics/diagnostics.h"
#include "apps/common/introspection/valueconversion.h"
#include "tests/unit/introspection/fixture.h"

#include <nlohmann/json.hpp>

#include <functional>
#include <limits>
#include <random>

namespace {

// Walks all variables of the catalogue. What reads or writes outside of a memory is the sanitizer's to tell.
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

    // Reads every element. Text that is not UTF-8 is the one thing that a structure cannot print.
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

    // Calls `change` and expects every byte outside of the variable as it was, and one post at most.
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

TEST_F(Sweep, EveryGetterReadsAnyBytes) {
    gen::LogLevel silent = static_cast<gen::LogLevel>(8);
    gComponentLogLevel = &silent;
    readAll();
    fill([] { return '\xff'; });
    readAll();
    for (int i = 0; i < 5; ++i) {
        fill([this] { return static_cast<char>(random()); });
        readAll();
        fill([this] { return static_cast<char>(random() % 0x80); });
        readAll();
    }
    gComponentLogLevel = nullptr;
}

TEST_F(Sweep, EveryValueThatIsReadCanBeSetBackWithoutChange) {
    forEach([&](const Variable& variable) {
        const std::string before = memories.bytes(variable.mem);
        EXPECT_EQ(set(variable, get(variable).c_str()), "") << variable.row().name;
        EXPECT_EQ(memories.bytes(variable.mem), before) << variable.row().name;
        const int type = variable.row().baseType;
        EXPECT_EQ(posts(), type == BaseString || type == BaseBuffer ? 1U : 0U) << variable.row().name;
    });
}

TEST_F(Sweep, HostileTextsChangeNothingOutsideTheirVariable) {
    fill([this] { return static_cast<char>(random()); });
    forEach([&](const Variable& variable) {
        for (const std::string& value :
             std::vector<std::string>{"", "7", "-1", "0x7fffffff", "1e30", "true", "Off", "{}", "%s%n",
                                      "\xff\xfe", std::string(5000, 'f'), std::string(5000, '\xe2')})
            expectContained(variable, [&] { set(variable, value.c_str()); });
    });
}

TEST_F(Sweep, HostileMembersAndIndexesChangeNothingOutsideTheirVariable) {
    using Limits = std::numeric_limits<int>;
    forEach([&](const Variable& variable) {
        if (!isStructure(variable)) {
            EXPECT_NE(Introspection::setVarValueJson(variable.mem, variable.var, {}, 0), "");
            return;
        }
        const int count = static_cast<int>(structureCount(variable.row()));
        const auto members = nlohmann::json::parse(get(variable));
        for (const auto& member : members.items()) {
            for (const int index : {0, count - 1, count, -1, Limits::max(), Limits::min()})
                for (const std::string& text :
                     {std::string("1"), std::string(5000, 'f'), std::string("true")})
                    expectContained(variable, [&] {
                        const std::string error = Introspection::setVarValueJson(
                            variable.mem, variable.var, {{member.key(), {text, false}}}, index);
                        EXPECT_TRUE((index >= 0 && index < count) || !error.empty()) << variable.row().name;
                    });
        }
        variable.row().event.arg2 = 0;
    });
}

} // namespace
