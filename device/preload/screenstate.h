#pragma once

#include <atomic>
#include <cstdint>

/// What a virtual device's framebuffer is set to, in a file beside the one that holds its pixels:
/// <root>/dev/fb0 and <root>/dev/fb0.state. Processes of the device map it and use it at the same time; each
/// word is consistent in itself. Words of 32 bits, the machine's byte order:
///
///     0      4      8              12             16               20        24         28
///     +------+------+--------------+--------------+----------------+---------+----------+
///     | xres | yres | xres_virtual | yres_virtual | bits_per_pixel | yoffset | smem_len |
///     +------+------+--------------+--------------+----------------+---------+----------+
///
/// Who makes the files gives them to each screen as it likes: nothing here checks that the numbers make
/// sense, so a device whose geometry lies is as easy to have as a good one.
struct ScreenState {
    using Word = std::atomic<std::uint32_t>;

    Word xres;
    Word yres;
    Word xresVirtual;
    Word yresVirtual;
    Word bitsPerPixel;
    Word yoffset; ///< written by panning: the first row that is on display
    Word smemLen; ///< bytes of video memory
};

static_assert(sizeof(ScreenState) == 28 && ScreenState::Word::is_always_lock_free);
