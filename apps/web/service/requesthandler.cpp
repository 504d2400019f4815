#include "apps/web/service/requesthandler.h"

#include "apps/common/diagnostics/diagnostics.h"
#include "apps/common/introspection/introspection.h"
#include "apps/common/values/variablejson.h"
#include "apps/web/service/request.h"
#include "apps/web/service/requeststream.h"
#include "apps/web/service/variables/resultanswer.h"
#include "apps/web/service/variables/setrequest.h"

#include <exception>
#include <ostream>

namespace {

constexpr auto PERIOD = std::chrono::nanoseconds(99'999'999);

} // namespace

RequestHandler::RequestHandler(EventPoll& poll, Fcgi& fcgi) : fcgi_(fcgi), logging_(poll) {
    Introspection::setEscapeCharacters(R"([\"])");
    try {
        logging_.init();
    } catch (const std::exception&) {
        LOG_MESSAGE(Error, "Logging to web gui will not be available");
    }
}

void RequestHandler::handleRequest(Request* request) {
    const std::string script = request->param("SCRIPT_NAME");
    LOG_MESSAGE(DebugMost, "REQUEST handle(%i, %i, %s)", request->socket(),
                static_cast<int>(request->requestId()), script.c_str());
    if (script == "/api/v1/all.cgi")
        sendTree(*request);
    else if (script == "/api/v1/update.cgi")
        UpdatePolls::hold(*request);
    else if (script == "/api/v1/set.cgi")
        setVariable(*request);
    else if (script == "/api/v1/log.cgi")
        logPolls_.open(*request);
    else if (script == "/api/v1/screen.cgi")
        sendScreen(*request);
    else if (script == "/qorapp/v1")
        app_.handleRequest(request);
    else
        rejectScript(*request, script);
}

void RequestHandler::sendTree(Request& request) {
    LOG_MESSAGE(LogLight, "Request %s from %s to %s by %s", request.param("SCRIPT_FILENAME").c_str(),
                request.param("REMOTE_ADDR").c_str(), request.param("SERVER_ADDR").c_str(),
                request.param("HTTP_USER_AGENT").c_str());
    RequestStream out(request);
    out << "{\r\n"
        << "\"id\": " << request.requestId() << ",\r\n"
        << "\"variables\": {";
    createJsonTree(out);
    out << "}}\r\n";
    request.end();
}

void RequestHandler::setVariable(Request& request) {
    std::stringstream errors;
    if (setVars(request.postData(), errors))
        answerSuccess(request);
    else
        answerError(request, errors.str());
}

void RequestHandler::sendScreen(Request& request) {
    request.writeHeader("Content-type: image/png\r\n\r\n");
    RequestStream out(request);
    out << screen_;
    request.end();
}

void RequestHandler::rejectScript(Request& request, const std::string& script) {
    LOG_MESSAGE(Warn, "Unknown script: '%s'", script.c_str());
    answerError(request, "Unknown script: '" + script + "'");
}

bool RequestHandler::setVars(const std::string& body, std::stringstream& errors) {
    SetRequest setRequest;
    return setRequest.parse(body, errors) && setRequest.hasValue() && setRequest.apply();
}

void RequestHandler::printVariable(unsigned int mem, unsigned int var, std::ostream& out) {
    out << tree_.variable(mem, var);
}

void RequestHandler::printValue(unsigned int mem, unsigned int var, std::ostream& out, int index) {
    out << valueJson(mem, var, index);
}

std::string RequestHandler::encodeString(const std::string& text) {
    return escapeForJson(text);
}

void RequestHandler::runPeriodic(Clock::time_point now) {
    if (now - lastRun_ <= PERIOD)
        return;
    lastRun_ = now;
    fcgi_.cleanup();
    sendUpdate();
    sendLogging();
    fcgi_.cleanup();
}

void RequestHandler::sendUpdate() {
    updates_.answer(fcgi_.requests());
}

void RequestHandler::sendLogging() {
    logging_.reap();
    logPolls_.answer(fcgi_.requests());
}

void RequestHandler::appendLogOutput(Request* request) {
    logPolls_.appendOutput(*request);
}
