#include "apps/variables/recording/reader.h"
#include "apps/variables/recording/writer.h"
#include "tests/unit/introspection/fixture.h"

#include <fstream>
#include <gmock/gmock.h>
#include <sstream>
#include <unistd.h>

namespace {

using recording::Entry;
using recording::Reader;
using std::chrono::microseconds;

class RecordingTest : public MappedCatalogue {
protected:
    // An integer, an entry, a text and a list, with four changes in two frames.
    std::string record() {
        const std::vector<VariableId> variables =
            matchingVariables({"FocusTorque", "DisplayUnit", "ProductName", "LensFileList"});
        set(Variable("ProductName"), "Lens");
        recording::Writer writer(path, variables, "2026-11-22T08:03:44.123Z");
        writer.start();
        const auto change = [&](int ms, const char* name, const char* value, const Notify& event) {
            set(Variable(name), value);
            const auto is = [&](const VariableId& id) { return std::string(name) == id.descriptor().name; };
            const auto place = std::find_if(variables.begin(), variables.end(), is) - variables.begin();
            writer.add(std::chrono::milliseconds(ms), static_cast<std::size_t>(place), event);
        };
        change(1, "ProductName", "Lins", {});
        change(2, "FocusTorque", "3", {});
        writer.flush();
        Introspection::setVarValueJson(Variable("LensFileList").mem, Variable("LensFileList").var,
                                       {{"LensFileName", {"Prime", false}}}, 7);
        change(3, "LensFileList", "{}", {0, 0, 7});
        change(3600000, "FocusTorque", "3", {});
        writer.flush();
        writer.sync();
        std::ifstream file(path);
        return (std::ostringstream() << file.rdbuf()).str();
    }

    // A line for each entry, then how the recording ends.
    std::vector<std::string> read(const std::string& bytes) const {
        std::ofstream(path) << bytes;
        std::vector<std::string> lines;
        try {
            Reader reader(path);
            for (Entry entry; reader.next(entry);)
                lines.push_back(std::to_string(entry.time.count()) + " " + std::to_string(entry.number) +
                                " " + std::to_string(entry.event.arg2) + " " +
                                reader.variables()[entry.number].value);
            lines.emplace_back(reader.isDamaged() ? "damaged" : reader.isTruncated() ? "truncated" : "whole");
        } catch (const std::runtime_error& error) {
            lines.emplace_back(error.what());
        }
        return lines;
    }

    // Whether the entries are the first ones of `whole`.
    static bool isBeginning(const std::vector<std::string>& lines, const std::vector<std::string>& whole) {
        return lines.size() <= whole.size() && std::equal(lines.begin(), lines.end() - 1, whole.begin());
    }

    std::string path = "/tmp/recording-" + std::to_string(getpid());

    ~RecordingTest() override { unlink(path.c_str()); }
};

TEST_F(RecordingTest, EntriesAreReadAsTheyWereWritten) {
    const std::vector<std::string> lines = read(record());
    ASSERT_EQ(lines.size(), 4U + 4U + 1U);
    const std::string torque("\3\0\0\0", 4);
    EXPECT_EQ(lines[0], "0 0 0 Lens" + std::string(16, '\0'));
    EXPECT_EQ(lines[4], "1000 0 0 Lins" + std::string(16, '\0'));
    EXPECT_EQ(lines[5], "2000 1 0 " + torque);
    EXPECT_EQ(lines[6].substr(0, 9), "3000 3 7 ");
    EXPECT_EQ(lines[6].substr(9),
              std::string(address(Variable("LensFileList")), Variable("LensFileList").row().size));
    EXPECT_EQ(lines[7], "3600000000 1 0 " + torque);
    EXPECT_EQ(lines[8], "whole");
}

TEST_F(RecordingTest, TruncatedAtAnyByteItEndsWithItsLastWholeFrame) {
    const std::string bytes = record();
    const std::vector<std::string> whole = read(bytes);
    std::set<std::size_t> counts;
    for (std::size_t length = 0; length < bytes.size(); ++length) {
        const std::vector<std::string> lines = read(bytes.substr(0, length));
        EXPECT_TRUE(isBeginning(lines, whole)) << length;
        EXPECT_NE(lines.back(), "damaged") << length;
        counts.insert(lines.size() - 1);
    }
    EXPECT_THAT(counts, testing::ElementsAre(0, 4, 6));
}

TEST_F(RecordingTest, FlippedBitsEndItBeforeTheirFrame) {
    std::string bytes = record();
    const std::vector<std::string> whole = read(bytes);
    for (std::size_t bit = 0; bit < 8 * bytes.size(); bit += 7) {
        const char mask = static_cast<char>(1U << bit % 8);
        bytes[bit / 8] = static_cast<char>(bytes[bit / 8] ^ mask);
        const std::vector<std::string> lines = read(bytes);
        EXPECT_TRUE(isBeginning(lines, whole) && lines.back() != "whole") << bit;
        bytes[bit / 8] = static_cast<char>(bytes[bit / 8] ^ mask);
    }
}

TEST_F(RecordingTest, ImpossibleEntriesAreDamage) {
    const auto frame = [](const std::string& content) {
        std::string text;
        recording::appendNumber(text, content.size());
        const std::uint32_t crc = recording::checksum(content);
        return text + content + std::string(reinterpret_cast<const char*>(&crc), sizeof crc);
    };
    // The first variable is this catalogue's, the second is not.
    const std::string head =
        std::string(recording::MAGIC) + frame(recording::describe(matchingVariables({"FocusTorque"})[0]) +
                                              "\nMemPersistent.FocusTorque int 4294967295\n");
    EXPECT_THAT(read(head + frame({0, 0, 5, 9})),
                testing::ElementsAre(std::string("0 0 0 \x9\0\0\0", 10), "whole"));
    EXPECT_THAT(read(head + frame({0, 4, 0})), testing::ElementsAre("0 1 0 ", "whole"));
    const std::string highest(9, '\xff');
    for (const std::string& content :
         {std::string{0, 8, 0}, std::string{0, 2, 0}, std::string{0, 0, 21, 1, 1, 1, 1},
          std::string{0, 0, 9, 9}, std::string{0, 0, 5}, std::string{0, 4, 0} + "\xff", std::string{0},
          highest + "\1" + std::string(2, '\0'), highest + "\xff\1" + std::string(2, '\0'),
          std::string(1, '\0') + highest + "\1", std::string(2, '\0') + highest + "\1"})
        EXPECT_EQ(read(head + frame(content)).back(), "damaged") << testing::PrintToString(content);
    EXPECT_EQ(read(head + "\xff\xff\xff\x7f").back(), "damaged");
    EXPECT_EQ(read("VarRec2\n").back(), path + ": this is not a recording of version 1");
}

} // namespace
