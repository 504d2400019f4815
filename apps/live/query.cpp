#include "apps/live/query.h"

#include <charconv>
#include <cstddef>

namespace {

// Cuts the text before the first `separator` off the front.
std::string_view takeUntil(std::string_view& text, char separator) {
    const std::size_t end = text.find(separator);
    const std::string_view front = text.substr(0, end);
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    return front;
}

std::string decoded(std::string_view text) {
    std::string out;
    for (std::size_t i = 0; i < text.size(); ++i) {
        unsigned int byte = 0;
        const char* const digits = text.data() + i + 1;
        if (text[i] == '%' && i + 2 < text.size() &&
            std::from_chars(digits, digits + 2, byte, 16).ptr == digits + 2) {
            out += static_cast<char>(byte);
            i += 2;
        } else {
            out += text[i] == '+' ? ' ' : text[i];
        }
    }
    return out;
}

} // namespace

std::vector<std::string> queryList(std::string_view query, std::string_view name) {
    std::vector<std::string> list;
    while (!query.empty()) {
        std::string_view parameter = takeUntil(query, '&');
        if (takeUntil(parameter, '=') != name)
            continue;
        const std::string value = decoded(parameter);
        for (std::string_view rest = value; !rest.empty();)
            if (const std::string_view item = takeUntil(rest, ','); !item.empty())
                list.emplace_back(item);
    }
    return list;
}

std::string queryValue(std::string_view query, std::string_view name) {
    while (!query.empty()) {
        std::string_view parameter = takeUntil(query, '&');
        if (takeUntil(parameter, '=') == name)
            return decoded(parameter);
    }
    return {};
}
