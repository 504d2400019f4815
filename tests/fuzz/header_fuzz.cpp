#include "apps/web/service/app/headerline.h"
#include "apps/web/service/qorapp.h"
#include "target.h"

#include <gtest/gtest.h>
#include <sstream>

// A header line against a literal splitter.

namespace {

std::string literalTrim(std::string text) {
    const auto isTrimmed = [](char c) { return c == '"' || c == ' ' || (c >= '\t' && c <= '\r'); };
    while (!text.empty() && isTrimmed(text.front()))
        text.erase(0, 1);
    while (!text.empty() && isTrimmed(text.back()))
        text.pop_back();
    return text;
}

} // namespace

void handle(std::string_view input) {
    static QorApp app("BOARD", "K1-7");
    HeaderFields fields{{"name", "first"}};
    HeaderFields expected = fields;
    app.splitHeaderLine(std::string(input), fields);
    std::istringstream pieces(std::string(input) + ";");
    for (std::string piece; expected.size() < MAX_HEADER_FIELDS && std::getline(pieces, piece, ';');) {
        const std::string text = literalTrim(piece);
        const std::size_t end = std::min(text.find('='), text.size());
        const std::string value = text.substr(std::min(end + 1, text.size()));
        expected.insert({literalTrim(text.substr(0, end)), literalTrim(value)});
    }
    EXPECT_EQ(fields, expected);
}
