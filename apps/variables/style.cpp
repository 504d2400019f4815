#include "apps/variables/style.h"

#include <cstdlib>
#include <unistd.h>

namespace {

bool isColoured() {
    const char* const off = std::getenv("NO_COLOR");
    const char* const terminal = std::getenv("TERM");
    return isatty(STDOUT_FILENO) != 0 && (off == nullptr || *off == '\0') && terminal != nullptr &&
           std::string(terminal) != "dumb";
}

} // namespace

std::string styled(Style style, const std::string& text) {
    static const bool IS_COLOURED = isColoured();
    if (!IS_COLOURED)
        return text;
    return "\033[" + std::to_string(static_cast<int>(style)) + "m" + text + "\033[0m";
}
