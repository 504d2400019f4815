#pragma once

#include "apps/libs/lhwinfo/persistentinfo.h"

#include <string>

/// The controller's factory and calibration data, stored on a card, and the flags for boot and update, stored
/// in a register that survives a reset. The keys are in constants.h.
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
/// "length" is the length that the stored data was written with; "checksum" covers it from "serial" on.
/// "version", "length" and "checksum" are private. Register, one word at physical address 0x20CC068 of
/// "/dev/mem":
///
///     31 update_requested | 30 .. 5 unused | 4 boot_failed | 3 .. 0 boot_failed_counter
///
/// A power cut: the card block lies in one page and one sector, which reaches the card at any moment. Stores
/// are ordered so that the block is then the old one, the new one, or one whose checksum does not match: the
/// last store is the checksum for a value and for clear(); when a block grows to a newer layout it is the
/// length, because the next start grows a block that is still short again.
///
/// PersistentInfo describes the forms of values. If another process sets the stored length beyond the region
/// after initialize(), writes throw as PersistentInfo::requireInside does and change nothing. Other processes
/// see a write at once; flush() waits for the card.
class HwInfo {
public:
    static constexpr unsigned int MMC_BLOCK_VERSION = 5;

    /// The content of the card.
    enum class Content {
        Valid,   ///< a block of this layout, or of a newer and longer one
        Older,   ///< an intact block of a shorter layout
        Invalid, ///< no block, or one whose checksum does not match
    };

    /// Opens both regions; reads and writes nothing. Throws "open: <reason>" or "mmap: <reason>".
    HwInfo();

    /// The same on other devices or on files.
    HwInfo(const char* registerDevice, const char* cardDevice);

    /// Declares the parameters and makes the card block valid. A block shorter than the layout is grown: it
    /// keeps its values, new ones are zero or empty, and an Error line says "Differents length, setting new
    /// values to default.". A block with a wrong checksum or with a length beyond the card's region is
    /// cleared, and an Error line says "Wrong checksum, setting defaults.". A valid block is only read. The
    /// register is not touched.
    void initialize();

    /// Declares the parameters and returns the content of the card. Changes nothing.
    Content examine();

    /// Reads a parameter of the card, otherwise of the register. Returns false and leaves `value` untouched
    /// if no parameter has that name; the numeric form also for a text parameter.
    bool read(const char* name, unsigned int& value) const;
    bool read(const char* name, std::string& value) const;

    /// Writes a number to a parameter of the card, private ones too, otherwise of the register, and updates
    /// the card's checksum. Returns false if no parameter has that name or Parameter::setValue returns
    /// false; the largest "length" is the size of the region.
    bool write(const char* name, unsigned int value);

    /// The same from "<name>=<value>", split at the first "="; blanks are part of the name. Also returns
    /// false without "=" or with a zero byte. Throws "<name> is private." for a private parameter.
    bool write(const std::string& assignment);

    /// Writes `text`, up to its first zero byte but at most `length` characters, to a text parameter of the
    /// card and updates the checksum. Returns false and changes nothing if no text parameter has that name,
    /// the text does not fit, or `text` is null. Throws "<name> is private." for a private parameter of any
    /// kind.
    bool write(const char* name, const char* text, unsigned int length);

    /// Why write(assignment) would not store it; empty if it would. Changes nothing. The texts are those of
    /// Parameter::refusal, "<name> is private", "Unknown parameter: <name>" and "<assignment> has no \"=\"".
    std::string refusal(const std::string& assignment) const;

    /// Computes the checksum over the stored "length" and stores it.
    void updateChecksum();

    /// Turns a block that was written with `length` bytes into one of this layout: sets the new bytes to
    /// zero, then stores version, checksum and length. REQUIRES, here and for clear(): initialize() or
    /// examine() was called.
    void initNewMemory(unsigned int length);

    /// Makes the card block a valid one of this layout with empty texts and zero numbers. The register is
    /// not touched.
    void clear();

    /// Print the parameters of card and register to std::cout, as PersistentInfo does.
    void printParameters() const;
    void printAll() const;

    /// Waits until the card holds all writes. Throws "msync: <reason>".
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
