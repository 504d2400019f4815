#pragma once

#include "apps/web/service/app/headerline.h"
#include "apps/web/service/app/multipart.h"

#include <map>
#include <string>
#include <string_view>

class Request;

/// The companion app's API under SCRIPT_NAME "/qorapp/v1", by PATH_INFO:
///
///     /device/info          the device's identity, free space and accessories
///     /device/update        accepts a firmware file for the device or an accessory, as a form
///     /device/status...     the update's state and progress; starts the update when its file is valid
///     /lenstables/list      the names of the user's files
///     /lenstables/file/...  GET, PUT or DELETE one of them
///     /focusrings, /setups  the same for the other two kinds
///
/// Answers are literal text, byte for byte, and report failures; no HTTP header is written here. The
/// functions below `handleRequest` write one answer each and do not end the request.
class QorApp {
public:
    /// Reads board and serial number from the hardware information; a missing one leaves its part of the
    /// device id empty. Throws what HwInfo's constructor throws when the card or the register cannot be
    /// opened. Removes the temporary files that a killed process has left.
    QorApp();

    /// With a known identity.
    QorApp(const std::string& board, const std::string& serial);

    /// Answers and ends the request. Ignores null. Throws what `update` throws, before the request has ended.
    void handleRequest(Request* request);

    void deviceInfo(Request* request);

    /// Reports state and progress of the update, and starts it when its file is valid.
    void updateStatus(Request* request);

    /// `folder` ends in a slash.
    void listOperation(Request* request, const std::string& folder);

    /// GET, PUT or DELETE. The path is folder + name, neither changed nor checked: the web server refuses
    /// names that leave the folder.
    void fileOperation(Request* request, const std::string& folder, const std::string& name);

    /// Stores the form's field "file" and, if it was stored completely, offers it to an updater: to the
    /// device's own when the form's "deviceid" is this device's, else to that of the accessory NAME-SERIAL.
    /// Throws std::runtime_error, with no answer written, when the file cannot be moved to the updater's
    /// path, when the serial is not a number, or when the broker is gone; variables written before stay
    /// written.
    void update(Request* request);

    /// Reads the request's body as a form whose file goes to `path`. Returns false when CONTENT_TYPE is not
    /// multipart/form-data or names no boundary.
    bool parseFormData(Request* request, std::map<std::string, std::string>& form, const char* path);

    /// Splits one header line at its semicolons, see headerline.h.
    void splitHeaderLine(const std::string& line, std::map<std::string, std::string>& into);

private:
    void route(Request* request, std::string_view path);
    void routeDevice(Request* request, std::string_view rest);
    void routeFiles(Request* request, const std::string& folder, std::string_view rest);
    enum class Upload { NoForm, NotStored, Stored };

    Upload readForm(const Request& request, std::map<std::string, std::string>& form, const char* path);
    void offerFile(const std::string& deviceId, const std::string& file);

    std::string deviceId_; ///< board-serial
    std::string serial_;
    bool appUpdatePending_ = false; ///< a file for this device itself was accepted
};
