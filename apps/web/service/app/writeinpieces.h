#pragma once

#include "apps/common/files/outputfile.h"

#include <string_view>

/// Writes `bytes` at the end of the file, in pieces of 16 MiB. Between them it waits until the piece is on
/// the disk, and reports to systemd that the service works: a slow card stores a firmware file in more than
/// the watchdog's period. The last piece is not on the disk yet. Returns as OutputFile::write and sync.
bool writeInPieces(OutputFile& file, std::string_view bytes);
