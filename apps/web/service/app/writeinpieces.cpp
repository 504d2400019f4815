#include "apps/web/service/app/writeinpieces.h"

#include "apps/common/event/servicemanager.h"

namespace {

constexpr std::size_t PIECE = 16 << 20;

} // namespace

bool writeInPieces(OutputFile& file, std::string_view bytes) {
    ServiceManager manager;
    for (; bytes.size() > PIECE; bytes.remove_prefix(PIECE)) {
        if (!file.write(bytes.substr(0, PIECE)) || !file.sync())
            return false;
        manager.feedWatchdog();
    }
    return file.write(bytes);
}
