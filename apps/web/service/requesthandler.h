#pragma once

#include "apps/common/event/eventpoll.h"
#include "apps/common/event/serverconnection.h"
#include "apps/web/service/fcgi.h"
#include "apps/web/service/log/logpolls.h"
#include "apps/web/service/logging.h"
#include "apps/web/service/qorapp.h"
#include "apps/web/service/screencapture.h"
#include "apps/web/service/variables/updatepolls.h"
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
///     /api/v1/update.cgi  waits for changed variables and returns them
///     /api/v1/log.cgi     the length of the kernel log and its text as HTML; with the query
///                         "offset=<bytes>" the text from there on, or waits for more of it
///     /api/v1/screen.cgi  the display's content as a PNG image
///     /qorapp/v1          the companion app's API
///
/// and passes the broker's events on to the waiting requests. Failures are reported in the answer's body; no
/// HTTP status is chosen here. Answers are literal text, byte for byte.
class RequestHandler : public Fcgi::RequestCallback, public ServerConnection::EventHandler {
public:
    using Clock = std::chrono::steady_clock;

    /// Both must outlive the handler. The caller makes the handler the listener's callback and the broker
    /// connection's handler. When the log's child cannot be started, the log stays empty, with an Error line.
    ///
    /// Throws what the constructors of QorApp and ScreenCapture throw: the service needs card, register and
    /// framebuffer.
    RequestHandler(EventPoll& poll, Fcgi& fcgi);

    /// Answers, or leaves the request open, tagged with the integer 0 for update.cgi and 1 for log.cgi.
    /// Throws what LogPolls::open and QorApp::handleRequest throw.
    void handleRequest(Request* request) override;

    /// See UpdatePolls::handleEvent.
    void handleEvent(const Notify& notify) override { updates_.handleEvent(notify); }

    /// See UpdatePolls::markAll.
    void markAllChanged() { updates_.markAll(); }

    /// To be called after every turn of the event loop. At most every 100 ms it deletes finished requests and
    /// answers the waiting ones.
    void periodic() { runPeriodic(Clock::now()); }
    void runPeriodic(Clock::time_point now);

    /// Applies a set request's body, see SetRequest. Returns true when the variable exists. Returns false,
    /// with nothing changed, when the body names no variable or cannot be parsed; `errors` gets the parser's
    /// reason.
    bool setVars(const std::string& body, std::stringstream& errors);

    /// Writes all memories and variables, without outer braces.
    void createJsonTree(std::ostream& out) { tree_.print(out); }

    /// Writes one variable's JSON value, see variablejson.h. Throws "Index exceeds limit".
    void printVariable(unsigned int mem, unsigned int var, std::ostream& out);

    /// Writes one element's JSON value. An exception's text takes the place of the value.
    void printValue(unsigned int mem, unsigned int var, std::ostream& out, int index);

    /// See UpdatePolls::answer, LogPolls::answer and LogPolls::appendOutput.
    void sendUpdate();
    void sendLogging();
    void appendLogOutput(Request* request);

    /// Escapes backslash, double quote, CR, LF and TAB as \uXXXX for a JSON string; other bytes are copied.
    static std::string encodeString(const std::string& text);

private:
    void sendTree(Request& request);
    void setVariable(Request& request);
    void sendScreen(Request& request);
    void rejectScript(Request& request, const std::string& script);

    Fcgi& fcgi_;
    Clock::time_point lastRun_ = Clock::now();
    VariableTree tree_;
    UpdatePolls updates_{tree_};
    QorApp app_;
    Logging logging_;
    LogPolls logPolls_{logging_.text()};
    ScreenCapture screen_;
};
