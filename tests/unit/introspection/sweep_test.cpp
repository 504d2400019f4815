#include "apps/common/diagnostics/diagnostics.h"
#include "tests/unit/introspection/fixture.h"

#include <nlohmann/json.hpp>

#include <cstring>
#include <functional>
#include <limits>
#include <random>

namespace {

/// Walks all variables of the catalogue. What reads or writes outside of a memory is the sanitizer's to tell.
class Sweep : public MappedCatalogue {
protected:
    static void forEach(const std::function<void(const Variable&)>& visit) {
        for (const MemoryDescriptor& memory : MEMORY_ARRAY) {
            for (std::uint32_t var = 0; var < memory.count; ++var) {
                visit(Variable(memory.variables[var].name));
            }
        }
    }

    void fill(const std::function<char()>& byte) {
        for (std::uint32_t mem = 0; mem < MEMORY_ARRAY_SIZE; ++mem) {
            std::generate_n(memories.base(mem), MEMORY_ARRAY[mem].size, byte);
        }
    }

    static int elements(const Variable& variable) {
        return variable.row().baseType == BASE_STRUCT && variable.row().isArray != 0
                   ? std::stoi(variable.row().arrayLen)
                   : 1;
    }

    /// Reads every element. Text that is not UTF-8 is the one thing that a structure cannot print.
    void readAll() {
        forEach([&](const Variable& variable) {
            for (int i = 0; i < elements(variable); ++i) {
                try {
                    const std::string text = get(variable, i);
                    if (variable.row().baseType == BASE_STRUCT) {
                        EXPECT_TRUE(nlohmann::json::accept(text)) << variable.row().name << text;
                    }
                } catch (const nlohmann::json::type_error&) {
                }
            }
        });
    }

    /// Calls `change` and expects every byte outside of the variable as it was, and one post at most.
    void expectContained(const Variable& variable, const std::function<void()>& change) {
        std::string before = memories.bytes(variable.mem);
        change();
        std::string after = memories.bytes(variable.mem);
        const VariableDescriptor& row = variable.row();
        before.replace(row.location, row.size, "");
        after.replace(row.location, row.size, "");
        EXPECT_EQ(before, after) << row.name;
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
        const bool alwaysPosts =
            variable.row().baseType == BASE_STRING || variable.row().baseType == BASE_BUFFER;
        EXPECT_EQ(posts(), alwaysPosts ? 1U : 0U) << variable.row().name;
    });
}

TEST_F(Sweep, HostileTextsChangeNothingOutsideTheirVariable) {
    const std::string longText(5000, 'f');
    const std::string longUtf8 = std::string(5000, '\xe2');
    fill([this] { return static_cast<char>(random()); });
    forEach([&](const Variable& variable) {
        for (const char* value : {"", "7", "-1", "0x7fffffff", "1e30", "true", "Off", "{}", "%s%n",
                                  "\xff\xfe", longText.c_str(), longUtf8.c_str()}) {
            expectContained(variable, [&] { set(variable, value); });
        }
    });
}

TEST_F(Sweep, HostileMembersAndIndexesChangeNothingOutsideTheirVariable) {
    using Limits = std::numeric_limits<int>;
    forEach([&](const Variable& variable) {
        const bool isStructure = variable.row().baseType == BASE_STRUCT;
        const int count = isStructure ? elements(variable) : 0;
        const auto members = nlohmann::json::parse(isStructure ? get(variable) : R"({"Nothing":0})");
        for (const auto& member : members.items()) {
            for (const int index : {0, count - 1, count, -1, Limits::max(), Limits::min()}) {
                for (const std::string& text :
                     {std::string("1"), std::string(5000, 'f'), std::string("true")}) {
                    expectContained(variable, [&] {
                        const std::string error = Introspection::setVarValueJson(
                            variable.mem, variable.var, {{member.key(), {text, false}}}, index);
                        EXPECT_TRUE((index >= 0 && index < count) || !error.empty()) << variable.row().name;
                    });
                }
            }
        }
        variable.row().event.arg2 = 0;
    });
}

} // namespace
