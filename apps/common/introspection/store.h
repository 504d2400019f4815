#pragma once

#include "apps/common/event/notify.h"

#include <cstddef>

/// Copies `size` bytes to `target`, which need not be aligned, if they differ from the bytes there. Returns
/// whether they differ. Four bytes are stored as one word, so that other processes read the old or the new
/// value of a number.
bool storeIfChanged(void* target, const void* bytes, std::size_t size);

/// storeIfChanged, and posts `event` if the bytes differ. Throws what postEvent throws; the value is stored
/// then.
void storeAndPost(void* target, const void* bytes, std::size_t size, const Notify& event);
