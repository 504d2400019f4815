#include "apps/web/service/variables/variabletree.h"

#include "apps/web/service/variables/updatedocument.h"
#include "gen/code/introspection_gen.h"
#include "gen/code/memories.h"
#include "tests/unit/diagnostics/logcapture.h"
#include "tests/unit/introspection/fixture.h"

#include <gmock/gmock.h>
#include <random>
#include <sstream>

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

std::string text(VariableTree& tree) {
    std::ostringstream out;
    tree.print(out);
    return out.str();
}

TEST(VariableTree, EqualsAFreshPrintAfterAnyChange) {
    Memories memories;
    LogCapture log; // random enumerations are reported
    VariableTree tree;
    std::mt19937 engine(3);
    const auto random = [&engine] { return static_cast<std::uint32_t>(engine()); };
    for (int round = 0; round < 20; ++round) {
        for (int change = 0; change < 10; ++change) {
            const std::uint32_t mem = random() % MEMORY_ARRAY_SIZE;
            memories.base(mem)[random() % MEMORY_ARRAY[mem].size] = static_cast<char>(random());
        }
        const std::uint32_t any = random() % MEMORY_ARRAY_SIZE;
        std::generate_n(memories.base(any), MEMORY_ARRAY[any].size, random);
        if (round % 3 == 0)
            tree.variable(random() % MEMORY_ARRAY_SIZE, 0);
        VariableTree fresh; // without texts from before
        ASSERT_EQ(text(tree), text(fresh)) << round;
    }
}

TEST(VariableTree, FollowsItsMemoryThroughUnmapping) {
    VariableTree tree;
    EXPECT_THAT(
        text(tree),
        StartsWith(
            R"("MemPersistent" : {"ProductName" : {"max":"0","min":"0","type":"string","value":"n/a"},)"));
    Memories memories;
    memories.base(0)[0] = 'K';
    EXPECT_THAT(text(tree),
                StartsWith(R"("MemPersistent" : {"ProductName" : {"max":"0","min":"0","type":"string",)"
                           R"("value":"K"},"ProductVersion" : {)"));
    EXPECT_EQ(tree.variable(17, 0).substr(0, 47), R"({ "value": "DebugAll", "type": "LogLevel", "tex)");
    EXPECT_THROW(tree.variable(18, 0), std::runtime_error);
    EXPECT_THROW(tree.variable(0, 73), std::runtime_error);
}

TEST(VariableTree, LogsAnInvalidValueWithEachReading) {
    Memories memories;
    memories.base(17)[0] = 8;
    VariableTree tree;
    LogCapture log;
    text(tree);
    EXPECT_THAT(text(tree), HasSubstr(R"("AppServiceLogLevel" : { "value": "INVALID_VALUE:8", )"));
    EXPECT_THAT(log.messages(), ElementsAre("Error Value 8 of enum LogLevel is above number of entries (8)",
                                            "Error Value 8 of enum LogLevel is above number of entries (8)"));
}

TEST(UpdateDocument, ListsVariablesWithoutValueAsErrors) {
    UpdateDocument document;
    document.beginVariable(3, "MemA", "One");
    document.addError(7, "broken");
    document.beginVariable(0, "MemB", "Two");
    document.addError(8, "too");
    EXPECT_EQ(document.text(), "\"errors\": [\"Backend error for variable with index 7: broken\"\n"
                               ",\"Backend error for variable with index 8: too\"\n],\r\n"
                               "\"variables\": {\r\n  \"MemA\" : {\r\n    \"One\" : "
                               "\r\n  }, \r\n  \"MemB\" : {\r\n    \"Two\" : "
                               "\r\n  }\r\n}\r\n}\r\n");
}

} // namespace
