#include "apps/common/introspection/jsontext.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <random>
#include <string>

namespace {

/// What `print` makes of the text, or its error.
template <typename Print>
std::string outcome(Print print, const std::string& text) {
    try {
        return print(text);
    } catch (const nlohmann::json::type_error& error) {
        return error.what();
    }
}

std::string quoted(const std::string& text) {
    std::string out = "x";
    appendJsonString(out, text);
    return out.substr(1);
}

void expectLikeLibrary(const std::string& text) {
    EXPECT_EQ(outcome(quoted, text),
              outcome([](const std::string& s) { return nlohmann::json(s).dump(); }, text));
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
        for (char& c : text) {
            c = bytes[random() % bytes.size()];
        }
        expectLikeLibrary(text);
    }
}

TEST(JsonText, InvalidTextLeavesTheOutputAsItWas) {
    std::string out = "before";
    EXPECT_THROW(appendJsonString(out, "abc\xff"), nlohmann::json::type_error);
    EXPECT_EQ(out, "before");
}

} // namespace
