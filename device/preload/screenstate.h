#pragma once

#include <atomic>
#include <cstdint>

/// The settings of a virtual device's framebuffer, in the file <root>/dev/fb0.state beside its pixels in
/// <root>/dev/fb0. Processes of the device map it at the same time; single words are consistent. Words of 32
/// bits, the machine's byte order:
///
///     0      4      8              12             16               20        24         28
///     +------+------+--------------+--------------+----------------+---------+----------+
///     | xres | yres | xres_virtual | yres_virtual | bits_per_pixel | yoffset | smem_len |
///     +------+------+--------------+--------------+----------------+---------+----------+
///
/// The numbers are not checked, so that tests can set up a device with a wrong geometry.
struct ScreenState {
    using Word = std::atomic<std::uint32_t>;

    Word xres;
    Word yres;
    Word xresVirtual;
    Word yresVirtual;
    Word bitsPerPixel;
    Word yoffset; ///< the first visible row, written by panning
    Word smemLen; ///< bytes of video memory
};

static_assert(sizeof(ScreenState) == 28 && ScreenState::Word::is_always_lock_free);
