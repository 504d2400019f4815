#pragma once

#include "apps/libs/lhwinfo/persistentinfo.h"

#include <iosfwd>
#include <string>

/// The controller's factory and calibration data, which a card keeps, and the flags for boot and update,
/// which a register keeps over a reset. The keys are in constants.h.
///
/// Card, 64 KiB at byte 1 MiB of "/dev/mmcblk1"; numbers have 32 bits, little-endian:
///
///       0  version              4  length                  8  checksum
///      12  serial  30          42  board  30              72  revision  30       102  k  30
///     132  knob_position_min  136  knob_position_max     140  slider_position_min
///     144  slider_position_max  148  zoom_zero_pos_x     152  zoom_zero_pos_y
///     156  bemf_gain          160  cal_comp              164  cal_bemf
///     168  knob_linearization  180                       348  end
///
/// "length" is the length that the stored data was written with, "checksum" covers it from "serial" on. Both
/// and "version" are private. Register, one word at physical address 0x20CC068 of "/dev/mem":
///
///     31 update_requested | 30 .. 5 unused | 4 boot_failed | 3 .. 0 boot_failed_counter
///
/// A power cut. The whole card block lies in one page and one sector, which reaches the card at any moment.
/// Stores are ordered so that the block is then the one from before, the one from after, or has a checksum
/// that does not match: for a value and for clear() the checksum is the last store; for growing to a newer
/// layout the length is, for a block that is still short is grown again with the next start.
///
/// Value forms are told at PersistentInfo. When the stored length has come to lie beyond the region after
/// initialize(), which only another process can cause, writes throw what PersistentInfo::requireInside throws
/// and change nothing. A write is seen by other processes
/// at once; flush() waits for the card.
class HwInfo {
public:
    static constexpr unsigned int MMC_BLOCK_VERSION = 5;

    /// What the card holds.
    enum class Content {
        Valid,   ///< a block of this layout, or of a newer and longer one
        Older,   ///< a block of a shorter layout, intact
        Invalid, ///< anything else: nothing, or a block whose checksum does not match
    };

    /// Opens both regions, reads and writes nothing. Throws "open: <reason>" or "mmap: <reason>".
    HwInfo();

    /// The same on other devices or files; for images of them.
    HwInfo(const char* registerDevice, const char* cardDevice);

    /// Declares the parameters and makes the card block valid. A block shorter than the layout is grown: its
    /// values stay, new ones are zero or empty, and an Error line says "Differents length, setting new values
    /// to default.". A block with a wrong checksum or with a length beyond the card's region is cleared, and
    /// an Error line says "Wrong checksum, setting defaults.". A valid block is only read, the register is
    /// not touched.
    void initialize();

    /// Declares the parameters and tells what the card holds. Changes nothing.
    Content examine();

    /// Reads a parameter of the card, otherwise of the register. False, and `value` is untouched, when there
    /// is none of that name; the numeric form is also false for a text parameter.
    bool read(const char* name, unsigned int& value) const;
    bool read(const char* name, std::string& value) const;

    /// Writes a number to a parameter of the card, private ones too, otherwise of the register, and brings
    /// the card's checksum up to date. False, and nothing is changed, when there is none of that name, it is
    /// a text parameter, or the number is too large for it: for "length" beyond the region's size.
    bool write(const char* name, unsigned int value);

    /// The same from "<name>=<value>", split at the first "=". The name has to be exact: no blanks are taken
    /// off. Also false without "=" and with a zero byte anywhere. Throws "<name> is private." for a private
    /// parameter; nothing is changed then.
    bool write(const std::string& assignment);

    /// Writes `text`, its characters up to the first zero byte but at most `length`, to a text parameter of
    /// the card, and brings the checksum up to date. False, and nothing is changed, when there is no text
    /// parameter of that name, the text does not fit, or `text` is null. Throws "<name> is private." for a
    /// private parameter of any kind; nothing is changed then.
    bool write(const char* name, const char* text, unsigned int length);

    /// Why write(assignment) would not store it; empty when it would. Changes nothing. The texts are those of
    /// Base::refusal, "<name> is private", "<name> is no parameter" and "<assignment> has no \"=\"".
    std::string refusal(const std::string& assignment) const;

    /// Stores the checksum of as many bytes as "length" says.
    void updateChecksum();

    /// Makes a block that was written with `length` bytes one of this layout: the bytes that are new become
    /// zero, then version, checksum and length are stored. REQUIRES, here and for clear(): initialize() or
    /// examine() was called.
    void initNewMemory(unsigned int length);

    /// Makes the card block a valid one of this layout with empty texts and zero numbers. The register is not
    /// touched.
    void clear();

    /// Prints the parameters of card and register, as PersistentInfo does.
    void printParameters(std::ostream& out) const;
    void printAll(std::ostream& out) const;

    /// Returns when the card holds all that was written. Throws "msync: <reason>".
    void flush() { card_.flush(); }

private:
    void declareParameters();
    void declareCard();
    void declareRegister();
    unsigned int number(const char* name) const;
    bool isIntact(unsigned int length) const;
    bool sealed(bool isStored);

    PersistentInfo register_;
    PersistentInfo card_;
};
