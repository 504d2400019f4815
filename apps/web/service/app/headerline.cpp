#include "apps/web/service/app/headerline.h"

#include "apps/common/diagnostics/diagnostics.h"

#include <algorithm>

namespace {

constexpr std::string_view TRIMMED = " \t\n\v\f\r\"";
constexpr std::size_t LOGGED = 1000; // more than a log line holds

void insertPiece(std::string_view piece, HeaderFields& into) {
    piece = trimHeaderText(piece);
    const std::size_t equals = piece.find('=');
    if (equals == std::string_view::npos)
        into.emplace(piece, "");
    else
        into.emplace(trimHeaderText(piece.substr(0, equals)), trimHeaderText(piece.substr(equals + 1)));
}

} // namespace

std::string_view trimHeaderText(std::string_view text) {
    const std::size_t begin = text.find_first_not_of(TRIMMED);
    if (begin == std::string_view::npos)
        return {};
    return text.substr(begin, text.find_last_not_of(TRIMMED) - begin + 1);
}

void splitHeaderLine(std::string_view line, HeaderFields& into) {
    LOG_MESSAGE(DebugAll, "Splitting line: \"%.*s\"", static_cast<int>(std::min(line.size(), LOGGED)),
                line.data());
    for (std::size_t begin = 0; begin <= line.size() && into.size() < MAX_HEADER_FIELDS;) {
        const std::size_t end = std::min(line.find(';', begin), line.size());
        insertPiece(line.substr(begin, end - begin), into);
        begin = end + 1;
    }
}
