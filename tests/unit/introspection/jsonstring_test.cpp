#include "apps/common/introspection/jsonstring.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <random>
#include <string>

namespace {

TEST(JsonString, EqualsTheLibrarysDump) {
    std::mt19937 random(1);
    const std::string special("\"#!\\][\x1f !\x7f\x80\xc2\x01\0~", 15);
    for (int i = 0; i < 100000; ++i) {
        std::string text(random() % 20, 'a');
        for (char& c : text)
            c = random() % 4 == 0 ? special[random() % special.size()] : c;
        if (!text.empty())
            text[random() % text.size()] = static_cast<char>(random());
        std::string out = "before";
        std::string expected = out;
        try {
            expected += nlohmann::json(text).dump();
            appendJsonString(out, text);
        } catch (const nlohmann::json::type_error&) {
            EXPECT_THROW(appendJsonString(out, text), nlohmann::json::type_error);
        }
        ASSERT_EQ(out, expected);
    }
}

} // namespace
