#pragma once

#include "apps/web/service/app/headerline.h"
#include "apps/web/service/app/multipart.h"

#include <string>
#include <string_view>

class Request;

/// The companion app's API, all that is asked for under SCRIPT_NAME "/qorapp/v1", by PATH_INFO:
///
///     /device/info          what the device is, its free space and its accessories
///     /device/update        takes a firmware file for the device or an accessory, as a form
///     /device/status...     how the update goes; asking is also what starts it once the file is found valid
///     /lenstables/list      the names of the user's files
///     /lenstables/file/...  GET, PUT or DELETE one of them
///     /focusrings, /setups  the same for the other two kinds
///
/// Answers are literal text, byte for byte; failures are told in them, and no HTTP header is written here.
/// The functions below `handleRequest` write one answer each and leave the request open.
class QorApp {
public:
    /// Reads board and serial number from the hardware information. Without them, because they are missing or
    /// the card cannot be read (an Error line), their parts of the device id are empty.
    QorApp();

    /// For a device that is known to be this one.
    QorApp(const std::string& board, const std::string& serial);

    /// Answers and ends the request. Null is ignored. Throws what `update` throws; the request is open then.
    void handleRequest(Request* request);

    void deviceInfo(Request* request);

    /// Reports state and progress of the update, and starts it when its file is valid.
    void updateStatus(Request* request);

    /// `folder` ends in a slash.
    void listOperation(Request* request, const std::string& folder);

    /// GET, PUT or DELETE. The path is folder + name, neither changed nor checked: the web server lets no
    /// name through that leaves the folder.
    void fileOperation(Request* request, const std::string& folder, const std::string& name);

    /// Stores the form's field "file" and offers it to an updater: to the device's own when the form's
    /// "deviceid" is this device's, else to the one of the accessory NAME-SERIAL. Throws std::runtime_error,
    /// with no answer written, when the file cannot be moved to where the updater expects it, when the serial
    /// number is none, or when the broker is gone; what was stored before stays stored.
    void update(Request* request);

    /// Reads the request's body as a form whose file goes to `path`. Returns false when CONTENT_TYPE is not
    /// multipart/form-data or names no boundary.
    bool parseFormData(Request* request, Form& form, const char* path);

    /// Splits one header line at its semicolons, see headerline.h.
    void splitHeaderLine(const std::string& line, HeaderFields& into);

private:
    struct HardwareId {
        std::string board;
        std::string serial;
    };

    explicit QorApp(const HardwareId& id) : QorApp(id.board, id.serial) {}
    static HardwareId readHardwareId();
    void route(Request* request, std::string_view path);
    void routeDevice(Request* request, std::string_view rest);
    void routeFiles(Request* request, const std::string& folder, std::string_view rest);
    void offerFile(const std::string& deviceId, const std::string& file);

    std::string deviceId_; ///< board-serial
    std::string serial_;
    bool appUpdatePending_ = false; ///< the app has sent a file for this device itself
};
