#include "apps/common/values/readablevalue.h"

#include "apps/common/introspection/structures.h"
#include "apps/common/values/plainvalue.h"

#include <nlohmann/json.hpp>

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

namespace {

// Bytes of the character that `text` begins with; 0 if it begins with none (table 3-7 of the Unicode
// standard).
std::size_t characterLength(std::string_view text) {
    const auto isIn = [text](std::size_t at, unsigned int low, unsigned int high) {
        const unsigned int byte = at < text.size() ? static_cast<unsigned char>(text[at]) : 0;
        return byte >= low && byte <= high;
    };
    const auto isTail = [&](std::size_t at) { return isIn(at, 0x80, 0xBF); };
    if (isIn(0, 0x01, 0x7F))
        return 1;
    if (isIn(0, 0xC2, 0xDF))
        return isTail(1) ? 2 : 0;
    if (isIn(0, 0xE0, 0xEF)) {
        const bool isFirst = isIn(0, 0xE0, 0xE0)   ? isIn(1, 0xA0, 0xBF)
                             : isIn(0, 0xED, 0xED) ? isIn(1, 0x80, 0x9F)
                                                   : isTail(1);
        return isFirst && isTail(2) ? 3 : 0;
    }
    const bool isFirst = isIn(0, 0xF0, 0xF0)   ? isIn(1, 0x90, 0xBF)
                         : isIn(0, 0xF4, 0xF4) ? isIn(1, 0x80, 0x8F)
                                               : isIn(0, 0xF1, 0xF3) && isTail(1);
    return isFirst && isTail(2) && isTail(3) ? 4 : 0;
}

void mend(char* text, std::size_t capacity) {
    std::string_view rest(text, capacity);
    rest = rest.substr(0, rest.find('\0'));
    while (!rest.empty()) {
        const std::size_t length = characterLength(rest);
        if (length == 0)
            text[0] = '?';
        text += length == 0 ? 1 : length;
        rest.remove_prefix(length == 0 ? 1 : length);
    }
}

void mendTexts(const VariableId& variable, char* base) {
    const VariableDescriptor& row = variable.descriptor();
    char* const address = base + row.location;
    if (row.baseType == BaseString)
        mend(address, row.size);
    for (const Reference& leaf : leaves(variable)) {
        if (leaf.member == nullptr || leaf.member->baseType != BaseString)
            continue;
        const std::size_t element = leaf.element.value_or(0);
        mend(address + element * findStructure(row.type)->size + leaf.member->offset, leaf.member->capacity);
    }
}

} // namespace

std::string readableValue(const Reference& reference, char* base) {
    std::string out;
    try {
        appendPlainValue(out, reference, base);
        return out;
    } catch (const nlohmann::json::type_error&) {
        out.clear();
    }
    const VariableDescriptor& row = reference.variable.descriptor();
    std::vector<char> copy(base, base + row.location + row.size);
    mendTexts(reference.variable, copy.data());
    appendPlainValue(out, reference, copy.data());
    return out;
}
