#include "apps/web/service/app/writeinpieces.h"

#include "apps/common/event/servicemanager.h"

#include <chrono>

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t PIECE = 16 << 20;
constexpr std::chrono::milliseconds FAST{100}; // 160 MB/s: all that is left takes a second

} // namespace

bool writeInPieces(OutputFile& file, std::string_view bytes) {
    ServiceManager manager;
    bool isSlow = true;
    for (; bytes.size() > PIECE; bytes.remove_prefix(PIECE)) {
        const auto begun = Clock::now();
        if (!file.write(bytes.substr(0, PIECE)) || (isSlow && !file.sync()))
            return false;
        isSlow = isSlow && Clock::now() - begun > FAST;
        manager.feedWatchdog();
    }
    return file.write(bytes);
}
