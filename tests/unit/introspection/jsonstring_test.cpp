#include "apps/common/introspection/jsonstring.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <random>
#include <string>

namespace {

// Expects what the JSON library prints, or its error and the output as it was.
void expectLikeLibrary(const std::string& text) {
    std::string out = "before";
    std::string expected = out;
    try {
        expected += nlohmann::json(text).dump();
    } catch (const nlohmann::json::type_error&) {
        EXPECT_THROW(appendJsonString(out, text), nlohmann::json::type_error);
        EXPECT_EQ(out, expected);
        return;
    }
    appendJsonString(out, text);
    EXPECT_EQ(out, expected);
}

TEST(JsonText, EveryByteAtEveryPlaceIsPrintedAsTheLibraryDoes) {
    for (std::size_t length = 1; length <= 18; ++length) {
        for (std::size_t place = 0; place < length; ++place) {
            for (int byte = 0; byte < 256; ++byte) {
                std::string text(length, 'a');
                text[place] = static_cast<char>(byte);
                expectLikeLibrary(text);
            }
        }
    }
}

TEST(JsonText, NeighboursOfEscapedBytesAreNotMistaken) {
    std::mt19937 random(1);
    const std::string bytes("\"#!\\][\x1f !\x7f\x80\xc2\x01\0~", 15);
    for (int i = 0; i < 20000; ++i) {
        std::string text(random() % 20, ' ');
        for (char& c : text)
            c = bytes[random() % bytes.size()];
        expectLikeLibrary(text);
    }
}

} // namespace
