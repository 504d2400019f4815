#pragma once

/// Folders, files and parameter keys that the device's processes share. Paths are built by concatenation, and
/// doubled slashes in them are intended.
namespace Constants {

// Folders. Those of the user files (lens tables, focus rings, setups) are below LOCAL_FOLDER.
constexpr const char* USB_FOLDER = "/media/usb/";
constexpr const char* DATA_PARTITION_FOLDER = "/data/";
constexpr const char* LOCAL_FOLDER = "/var/";
constexpr const char* ORVA_FOLDER = "ORVA/";
constexpr const char* QOR_FOLDER = "/QOR/";
constexpr const char* TAB_FOLDER = "/LDA/";
constexpr const char* FOR_FOLDER = "/FOR/";
constexpr const char* SETUPS_FOLDER = "/SETUPS/";
constexpr const char* SUP_FOLDER = "/SUP/";
constexpr const char* LOG_FOLDER = "/LOG/";

// Update files: of this device (host), of a radio accessory (client), of a device on the wired bus.
constexpr const char* SUP_FILE = "/update/host.swu";
constexpr const char* SUP_FILE_LAST_GOOD = "/update/host-last-good.swu";
constexpr const char* SUP_FILE_LAST_APPLIED = "/update/host-last-applied.swu";
constexpr const char* CMF_FILE = "/update/client.cmf";
constexpr const char* RBUS_SUP_FILE = "/update/rbus.cmf";

// File name extensions.
constexpr const char* TAB_EXTENSION = ".tab";
constexpr const char* SETUPS_EXTENSION = ".stp";

// Keys of the hardware information on the card.
constexpr const char* HWINFO_SERIAL = "serial";
constexpr const char* HWINFO_BOARD = "board";
constexpr const char* HWINFO_REVISION = "revision";
constexpr const char* HWINFO_K = "k";
constexpr const char* KNOB_POS_MIN = "knob_position_min";
constexpr const char* KNOB_POS_MAX = "knob_position_max";
constexpr const char* SLIDER_POS_MIN = "slider_position_min";
constexpr const char* SLIDER_POS_MAX = "slider_position_max";
constexpr const char* JOYSTICK_ZERO_POS_X = "zoom_zero_pos_x";
constexpr const char* JOYSTICK_ZERO_POS_Y = "zoom_zero_pos_y";
constexpr const char* VIBRATION_BEMF_GAIN = "bemf_gain";
constexpr const char* VIBRATION_CAL_COMP = "cal_comp";
constexpr const char* VIBRATION_CAL_BEMF = "cal_bemf";
constexpr const char* HWINFO_KNOB_LINEARIZATION = "knob_linearization";

// Keys of the hardware information in the register that survives a reset.
constexpr const char* HWINFO_UPDATE_REQ = "update_requested";
constexpr const char* HWINFO_UNUSED = "unused";
constexpr const char* HWINFO_BOOT_FAILED = "boot_failed";
constexpr const char* HWINFO_BOOT_FAILED_COUNTER = "boot_failed_counter";

} // namespace Constants
