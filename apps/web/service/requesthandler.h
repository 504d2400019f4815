#pragma once

#include "apps/common/event/eventpoll.h"
#include "apps/common/event/serverconnection.h"
#include "apps/web/service/fcgi.h"
#include "apps/web/service/logging.h"
#include "apps/web/service/qorapp.h"
#include "apps/web/service/screencapture.h"
#include "apps/web/service/variables/changedset.h"
#include "apps/web/service/variables/variabletree.h"

#include <chrono>
#include <iosfwd>
#include <sstream>
#include <string>

class Request;

/// Answers every completed request, by its SCRIPT_NAME:
///
///     /api/v1/all.cgi     the whole variable tree
///     /api/v1/set.cgi     sets the variable that the body names
///     /api/v1/update.cgi  waits, then tells the variables that changed
///     /api/v1/log.cgi     the length of the kernel log and its text as HTML; with the query
///                         "offset=<bytes>" what lies behind that, which may mean to wait for it
///     /api/v1/screen.cgi  what the display shows, as a PNG image
///     /qorapp/v1          the companion app's API
///
/// and collects the changes that the broker reports for those who wait. Failures are told in the answer's
/// body; no HTTP status is chosen here. Answers are literal text, byte for byte.
class RequestHandler : public Fcgi::RequestCallback, public ServerConnection::EventHandler {
public:
    using Clock = std::chrono::steady_clock;

    /// Both must outlive the handler. Nothing is registered but the log's child: the caller makes the handler
    /// the listener's callback and the broker connection's handler. Without the child, which gets a line, the
    /// log stays empty.
    ///
    /// Throws what ScreenCapture's constructor throws: without a framebuffer there is no service.
    RequestHandler(EventPoll& poll, Fcgi& fcgi);

    /// Answers, or leaves the request open, tagged with the integer 0 for update.cgi and 1 for log.cgi.
    /// Throws what the conversion of a log offset throws when it is no number or below 0.
    void handleRequest(Request* request) override;

    /// Marks the event's variable as changed. An id beyond the known events is logged at Warn and dropped.
    void handleEvent(const Notify& notify) override;

    /// To be called after every turn of the event loop. At most every 100 ms it deletes finished requests and
    /// answers the waiting ones.
    void periodic(Clock::time_point now = Clock::now());

    /// Applies a set request's body, {"<memory>": {"<variable>": <value>}} or, for a structure,
    /// {"<memory>": {"<variable>": {"Index": <i>, "<member>": <value>, ...}}}. Returns true once the variable
    /// was found and its setter asked, even if the setter refused the value: what counts is what is read
    /// back. Returns false, with nothing changed, when the body names no such variable; `errors` then holds
    /// "JSON parse error at <position>.\r\n" if it could not be parsed, "Nested deeper than <n> levels.\r\n"
    /// beyond MAX_NESTING, and else nothing.
    bool setVars(const std::string& body, std::stringstream& errors);

    /// Writes all memories and variables, without outer braces.
    void createJsonTree(std::ostream& out);

    /// One variable's JSON value. Never throws: what goes wrong stands in the value's place.
    void printVariable(unsigned int mem, unsigned int var, std::ostream& out);

    /// Escapes backslash, double quote, CR, LF and TAB as \uXXXX for a JSON string; the rest stays.
    static std::string encodeString(const std::string& text);

private:
    void sendTree(Request& request);
    void setVariable(Request& request);
    void rejectScript(Request& request, const std::string& script);
    void logChange(const Notify& notify);
    void sendUpdate();
    std::string takeUpdate();
    void sendUpdate(Request& request, const std::string& update);
    void openLog(Request& request);
    void appendLogOutput(Request& request);
    void sendLogging();
    void sendScreen(Request& request);

    EventPoll& poll_;
    Fcgi& fcgi_;
    Clock::time_point lastRun_ = Clock::now();
    ChangedSet changed_;
    VariableTree tree_;
    QorApp app_;
    Logging logging_;
    ScreenCapture screen_;
};
