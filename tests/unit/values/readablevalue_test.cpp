#include "apps/common/values/readablevalue.h"

#include "tests/unit/introspection/fixture.h"

#include <nlohmann/json.hpp>

#include <cstring>

namespace {

class ReadableValueTest : public MappedCatalogue {
protected:
    static std::string printed(const std::string& name, const std::string& text) {
        const Reference reference = Reference::parse(name);
        char* const base = *reference.variable.descriptor().memory;
        std::memcpy(base + reference.variable.descriptor().location, text.c_str(), text.size() + 1);
        return readableValue(reference, base);
    }
};

TEST_F(ReadableValueTest, BytesThatAreNotUtf8AreQuestionMarks) {
    for (const auto& [text, shown] :
         std::vector<std::pair<std::string, std::string>>{{"4.2\xff", "4.2?"},
                                                          {"\xc3\xa4\xc3", "\xc3\xa4?"},
                                                          {"\xe2\x82\x41\xe2\x82\xac", "??A\xe2\x82\xac"},
                                                          {"\xf0\x9f\x8e\xa5\xf0\x9f", "\xf0\x9f\x8e\xa5??"},
                                                          {"\xed\xa0\x80", "???"},
                                                          {"\xc0\x80", "??"}})
        EXPECT_EQ(printed("MemPersistent.ProductName", text), "\"" + shown + "\"");
    const auto lenses = nlohmann::json::parse(printed("MemPersistent.MruLensFileList", "a\x80"));
    EXPECT_EQ(lenses[0]["LensFileName"], "a?") << "the other values of the structure are there, too";
    EXPECT_EQ(printed("MemPersistent.MruLensFileList[0].LensFileName", "\x80"), "\"?\"");
}

// A library decides which of the texts are UTF-8.
TEST_F(ReadableValueTest, AllOthersAreUnchanged) {
    const std::string bytes = "A\x80\x8f\x90\x9f\xa0\xbf\xc1\xc2\xdf\xe0\xed\xef\xf0\xf1\xf4\xf5";
    for (std::size_t i = 0; i < bytes.size() * bytes.size() * bytes.size() * bytes.size(); ++i) {
        std::string text;
        for (std::size_t rest = i, at = 0; at < 4; ++at, rest /= bytes.size())
            text += bytes[rest % bytes.size()];
        const bool isUtf8 = nlohmann::json::accept("\"" + text + "\"");
        ASSERT_EQ(printed("MemPersistent.ProductName", text) == "\"" + text + "\"", isUtf8) << i;
    }
}

} // namespace
