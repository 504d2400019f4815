#pragma once

#include "apps/common/files/outputfile.h"

#include <string_view>

/// Writes `bytes` at the end of the file, in pieces of 16 MiB. After each piece but the last it reports to
/// systemd that the service works; on a slow card, which stores a firmware file in more than the watchdog's
/// period, it first waits until the piece is on the disk. At the end, some bytes are not on the disk yet.
/// Returns as OutputFile::write and sync.
bool writeInPieces(OutputFile& file, std::string_view bytes);
