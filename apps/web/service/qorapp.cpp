#include "apps/web/service/qorapp.h"

#include "apps/common/diagnostics/constants.h"
#include "apps/common/diagnostics/diagnostics.h"
#include "apps/libs/lhwinfo/hwinfo.h"
#include "apps/web/service/app/deviceinfo.h"
#include "apps/web/service/app/firmwareupdate.h"
#include "apps/web/service/app/headerline.h"
#include "apps/web/service/app/userfiles.h"
#include "apps/web/service/request.h"

#include <cstdio>
#include <unistd.h>

namespace {

constexpr const char* UPLOAD_FILE = "/update/file-from-app";
constexpr const char* BODY_COPY = "/tmp/post-data";

constexpr const char* UNKNOWN_REQUEST = R"({"result": "Unknown request" })";
constexpr const char* SUCCESS = R"({"result": "Success" })";
constexpr const char* NO_SUCH_FILE = R"({"result": "No such file" })";
constexpr const char* WRITE_ERROR = R"({"result": "Write error" })";
constexpr const char* OPEN_ERROR = "{\"result\": \"Open error\" }\r\n"; // the only one with a line end
constexpr const char* INVALID_TYPE = R"({"result": "Invalid content type" })";
constexpr const char* FIELD_MISSING =
    R"({"result": "'deviceid' and 'file' are mandatory, but at least one is missing." })";
constexpr const char* NO_DASH = R"({"result": "'deviceid' has to be in the form DEVICE-SERIAL." })";

struct Kind {
    std::string_view path;
    const char* folder;
};

constexpr Kind KINDS[] = {
    {"/lenstables", Constants::TAB_FOLDER},
    {"/focusrings", Constants::FOR_FOLDER},
    {"/setups", Constants::SETUPS_FOLDER},
};

// Removes `prefix` from the front of `text`. Returns false when `text` begins differently.
bool take(std::string_view& text, std::string_view prefix) {
    if (!text.starts_with(prefix))
        return false;
    text.remove_prefix(prefix.size());
    return true;
}

const char* answerOf(UserFiles::Stored stored) {
    switch (stored) {
    case UserFiles::Stored::NotOpened:
        return OPEN_ERROR;
    case UserFiles::Stored::NotWritten:
        return WRITE_ERROR;
    case UserFiles::Stored::Done:
        break;
    }
    return SUCCESS;
}

bool isTracing() {
    return gComponentLogLevel != nullptr && *gComponentLogLevel < gen::LogLevel::DebugMost;
}

// Keeps the request's body for debugging.
void copyBody(const std::string& body) {
    OutputFile copy;
    copy.open(BODY_COPY);
    copy.write(body);
}

bool isComplete(const Form& form) {
    const bool isComplete = form.contains("deviceid") && form.contains("file");
    if (!isComplete)
        LOG_MESSAGE(Warn, "'deviceid' and 'file' are mandatory, but at least one is missing.");
    return isComplete;
}

void logForm(const Form& form) {
    LOG_MESSAGE(DebugAll, "Request content:");
    for (const auto& [name, value] : form)
        LOG_MESSAGE(DebugAll, "  \"%s\": \"%s\"", name.c_str(), value.c_str());
}

// Removes a file that was not moved away.
class RemovedAtEnd {
public:
    explicit RemovedAtEnd(const char* path) : path_(path) {}
    ~RemovedAtEnd() { unlink(path_); }
    RemovedAtEnd(const RemovedAtEnd&) = delete;
    RemovedAtEnd& operator=(const RemovedAtEnd&) = delete;

private:
    const char* path_;
};

std::string folderOf(const Kind& kind) {
    return std::string(Constants::LOCAL_FOLDER) + kind.folder;
}

// A process that was killed may have left them.
void removeTemporaryFiles() {
    unlink(UPLOAD_FILE);
    for (const Kind& kind : KINDS)
        UserFiles(folderOf(kind)).removeLeftovers();
}

void moveUpload(const std::string& from, const char* to) {
    if (!moveFile(from, to))
        throwErrorNumber(__FILE__, __LINE__, "rename");
}

} // namespace

QorApp::QorApp() {
    removeTemporaryFiles();
    HwInfo info;
    info.initialize();
    std::string board;
    info.read(Constants::HWINFO_SERIAL, serial_);
    info.read(Constants::HWINFO_BOARD, board);
    deviceId_ = board + "-" + serial_;
}

QorApp::QorApp(const std::string& board, const std::string& serial)
    : deviceId_(board + "-" + serial), serial_(serial) {}

void QorApp::handleRequest(Request* request) {
    if (request == nullptr)
        return;
    const std::string path = request->param("PATH_INFO");
    LOG_MESSAGE(LogMost, "QorApp: %s %s", request->param("REQUEST_METHOD").c_str(), path.c_str());
    route(request, path);
    request->end();
}

void QorApp::route(Request* request, std::string_view path) {
    if (take(path, "/device"))
        return routeDevice(request, path);
    for (const Kind& kind : KINDS)
        if (take(path, kind.path))
            return routeFiles(request, folderOf(kind), path);
    request->output() << UNKNOWN_REQUEST;
}

void QorApp::routeDevice(Request* request, std::string_view rest) {
    if (rest == "/info")
        deviceInfo(request);
    else if (rest == "/update")
        update(request);
    else if (rest.starts_with("/status"))
        updateStatus(request);
    else
        request->output() << UNKNOWN_REQUEST;
}

void QorApp::routeFiles(Request* request, const std::string& folder, std::string_view rest) {
    if (rest == "/list")
        listOperation(request, folder);
    else if (take(rest, "/file"))
        fileOperation(request, folder, std::string(rest));
    else
        request->output() << UNKNOWN_REQUEST;
}

void QorApp::deviceInfo(Request* request) {
    writeDeviceInfo(request->output(), deviceId_, serial_);
}

void QorApp::updateStatus(Request* request) {
    const UpdateStatus status = appUpdatePending_ ? hostUpdateStatus() : accessoryUpdateStatus();
    LOG_MESSAGE(LogLight, "Update Status: %s, %i%%", status.state.c_str(), status.progress);
    request->output() << R"({"status": ")" << status.state << R"(", "progress": )" << status.progress << " }";
}

void QorApp::listOperation(Request* request, const std::string& folder) {
    const auto names = UserFiles(folder).list();
    if (!names) {
        request->output() << "[]";
        return;
    }
    request->output() << "[";
    const char* separator = "";
    for (const std::string& name : *names) {
        request->output() << separator << "\r\n\"" << name << "\"";
        separator = ",";
    }
    request->output() << "\r\n]";
}

void QorApp::fileOperation(Request* request, const std::string& folder, const std::string& name) {
    const UserFiles files(folder);
    const std::string& method = request->param("REQUEST_METHOD");
    if (method == "GET") {
        if (!files.send(name, *request))
            request->output() << NO_SUCH_FILE;
    } else if (method == "PUT") {
        request->output() << answerOf(files.store(name, request->postData()));
    } else if (method == "DELETE") {
        request->output() << (files.remove(name) ? SUCCESS : NO_SUCH_FILE);
    } else {
        request->output() << UNKNOWN_REQUEST;
    }
}

void QorApp::update(Request* request) {
    if (isTracing())
        copyBody(request->postData());
    const RemovedAtEnd uploaded(UPLOAD_FILE);
    Form form;
    const Upload upload = readForm(*request, form, UPLOAD_FILE);
    if (upload == Upload::NoForm) {
        request->output() << INVALID_TYPE;
        return;
    }
    if (isTracing())
        logForm(form);
    if (!isComplete(form)) {
        request->output() << FIELD_MISSING;
        return;
    }
    const std::string& deviceId = form["deviceid"];
    if (deviceId.find('-') == std::string::npos) {
        LOG_MESSAGE(Warn, "'deviceid' has to be in the form DEVICE-SERIAL, but it is %s.", deviceId.c_str());
        request->output() << NO_DASH;
        return;
    }
    LOG_MESSAGE(LogLight, "Received update file for device ID %s, our device ID is %s.", deviceId.c_str(),
                deviceId_.c_str());
    if (upload == Upload::NotStored) {
        request->output() << WRITE_ERROR;
        return;
    }
    offerFile(deviceId, form["file"]);
    request->output() << R"({"taskid": ")" << deviceId << R"(" })";
}

// REQUIRES: a dash in `deviceId`.
void QorApp::offerFile(const std::string& deviceId, const std::string& file) {
    if (deviceId == deviceId_) {
        moveUpload(file, Constants::SUP_FILE);
        offerHostFile();
        appUpdatePending_ = true;
        return;
    }
    moveUpload(file, Constants::CMF_FILE);
    const std::size_t dash = deviceId.rfind('-');
    offerAccessoryFile(deviceId.substr(0, dash), deviceId.substr(dash + 1));
}

bool QorApp::parseFormData(Request* request, std::map<std::string, std::string>& form, const char* path) {
    return readForm(*request, form, path) != Upload::NoForm;
}

QorApp::Upload QorApp::readForm(const Request& request, Form& form, const char* path) {
    HeaderFields type;
    ::splitHeaderLine(request.param("CONTENT_TYPE"), type);
    if (!type.contains("multipart/form-data")) {
        LOG_MESSAGE(Warn, "No multipart/form-data");
        return Upload::NoForm;
    }
    const std::string& boundary = type["boundary"];
    if (boundary.empty()) {
        LOG_MESSAGE(Warn, "No boundary");
        return Upload::NoForm;
    }
    const bool isStored = Multipart(request.postData(), boundary, path).read(form);
    return isStored ? Upload::Stored : Upload::NotStored;
}

void QorApp::splitHeaderLine(const std::string& line, std::map<std::string, std::string>& into) {
    ::splitHeaderLine(line, into);
}
