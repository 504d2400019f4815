#include "apps/web/service/requesthandler.h"

#include "apps/common/diagnostics/diagnostics.h"
#include "apps/common/introspection/introspection.h"
#include "apps/web/service/request.h"
#include "apps/web/service/requeststream.h"
#include "apps/web/service/variables/setrequest.h"
#include "apps/web/service/variables/updatedocument.h"
#include "gen/code/introspection_gen.h"
#include "gen/code/memories.h"

#include <algorithm>
#include <cstddef>
#include <optional>
#include <ostream>
#include <string_view>
#include <utility>

namespace {

constexpr int WAITS_FOR_UPDATE = 0;
constexpr int WAITS_FOR_LOG = 1;
constexpr auto PERIOD = std::chrono::nanoseconds(99'999'999);

std::optional<unsigned int> findVariable(unsigned int mem, const std::string& name) {
    for (unsigned int var = 0; var < Introspection::getVarCount(mem); ++var)
        if (name == Introspection::getVarName(mem, var))
            return var;
    return std::nullopt;
}

bool isInRange(unsigned int mem, unsigned int var, const std::string& value) {
    const int baseType = Introspection::getVarBaseType(mem, var);
    if (baseType != BaseInt && baseType != BaseFloat)
        return true;
    std::string error;
    return Introspection::checkMinMax(mem, var, value.c_str(), error);
}

// Asks the variable's setter. What it says is not told: the answer is whether the variable exists.
void applyValue(unsigned int mem, unsigned int var, const JsonObject& pairs, int index) {
    const std::string& value = pairs.back().second.text;
    if (Introspection::getVarBaseType(mem, var) == BaseStruct)
        Introspection::setVarValueJson(mem, var, pairs, index);
    else if (isInRange(mem, var, value))
        Introspection::setVarValue(mem, var, value.c_str());
}

bool waitsFor(const Request& request, int what) {
    const int* tag = std::any_cast<int>(&request.context);
    return tag != nullptr && *tag == what;
}

// Piece by piece, so that the output stream never holds a copy of all of it.
void answerText(Request& request, std::string_view text) {
    constexpr std::size_t PIECE = 32768;
    for (; !text.empty(); text.remove_prefix(std::min(PIECE, text.size())))
        request.output() << text.substr(0, PIECE);
    request.end();
}

void answerError(Request& request, const std::string& text) {
    request.output() << R"({"result": 0, "error": ")" << RequestHandler::encodeString(text) << R"(" })";
    request.end();
}

} // namespace

RequestHandler::RequestHandler(EventPoll& poll, Fcgi& fcgi) : poll_(poll), fcgi_(fcgi), logging_(poll) {
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
        request->context = WAITS_FOR_UPDATE;
    else if (script == "/api/v1/set.cgi")
        setVariable(*request);
    else if (script == "/api/v1/log.cgi")
        openLog(*request);
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

void RequestHandler::createJsonTree(std::ostream& out) {
    tree_.print(out);
}

void RequestHandler::printVariable(unsigned int mem, unsigned int var, std::ostream& out) {
    out << tree_.variable(mem, var);
}

void RequestHandler::setVariable(Request& request) {
    std::stringstream errors;
    if (!setVars(request.postData(), errors))
        return answerError(request, errors.str());
    request.output() << R"({"result": 1 })";
    request.end();
}

bool RequestHandler::setVars(const std::string& body, std::stringstream& errors) {
    SetRequest setRequest;
    if (!setRequest.parse(body, errors) || !setRequest.hasValue())
        return false;
    try {
        const int index = setRequest.elementIndex();
        const unsigned int mem = Introspection::getMemIndex(setRequest.memory);
        const std::optional<unsigned int> var = findVariable(mem, setRequest.variable);
        if (!var)
            return false;
        applyValue(mem, *var, setRequest.pairs, index);
        return true;
    } catch (const std::exception&) {
        return false; // no such memory, no number for the index, the broker gone: told by the result alone
    }
}

void RequestHandler::rejectScript(Request& request, const std::string& script) {
    LOG_MESSAGE(Warn, "Unknown script: '%s'", script.c_str());
    answerError(request, "Unknown script: '" + script + "'");
}

std::string RequestHandler::encodeString(const std::string& text) {
    std::string encoded;
    for (const char c : text) {
        switch (c) {
        case '\\':
            encoded += "\\u005c";
            break;
        case '"':
            encoded += "\\u0022";
            break;
        case '\r':
            encoded += "\\u000d";
            break;
        case '\n':
            encoded += "\\u000a";
            break;
        case '\t':
            encoded += "\\u0009";
            break;
        default:
            encoded += c;
        }
    }
    return encoded;
}

void RequestHandler::handleEvent(const Notify& notify) {
    if (!isKnownEvent(notify))
        return;
    if (gMemStatic != nullptr && gMemStatic[offsetof(MemStatic, VariableLogging)] != 0)
        logChange(notify);
    changed_.set(notify.id);
}

void RequestHandler::logChange(const Notify& notify) {
    unsigned int mem = 0;
    unsigned int var = 0;
    Introspection::getVarLocation(notify, mem, var);
    const std::string text = std::string(Introspection::getMemName(mem)) + "." +
                             Introspection::getVarName(mem, var) + ": " + tree_.variable(mem, var);
    LOG_MESSAGE(LogLight, "%s", text.c_str());
}

void RequestHandler::periodic(Clock::time_point now) {
    if (now - lastRun_ <= PERIOD)
        return;
    lastRun_ = now;
    fcgi_.cleanup();
    sendUpdate();
    sendLogging();
    fcgi_.cleanup();
}

void RequestHandler::sendUpdate() {
    if (changed_.isEmpty())
        return;
    const std::string update = takeUpdate();
    for (const auto& [id, request] : fcgi_.requests())
        if (waitsFor(*request, WAITS_FOR_UPDATE))
            sendUpdate(*request, update);
}

std::string RequestHandler::takeUpdate() {
    UpdateDocument document;
    for (std::uint32_t id = 0; id < EVENT_COUNT; ++id) {
        if (!changed_.take(id))
            continue;
        try {
            unsigned int mem = 0;
            unsigned int var = 0;
            Introspection::getVarLocation({id, 0, 0}, mem, var);
            document.beginVariable(mem, Introspection::getMemName(mem), Introspection::getVarName(mem, var));
            document.addValue(tree_.variable(mem, var));
        } catch (const std::exception& error) {
            document.addError(id, error.what());
        }
    }
    return document.text();
}

void RequestHandler::sendUpdate(Request& request, const std::string& update) {
    try {
        request.output() << "{\r\n"
                         << "\"id\": " << request.requestId() << ",\r\n"
                         << update;
        request.end();
    } catch (const std::exception&) {
        LOG_MESSAGE(Error, "Could not send updates to request %i", static_cast<int>(request.id()));
    }
}

// The length in front is that of this moment, even if the text follows much later: a client that waited adds
// the length of what it got.
void RequestHandler::openLog(Request& request) {
    request.writeHeader("Content-type: text/html\r\n\r\n");
    request.output() << logging_.text().size() << "\r\n";
    request.context = WAITS_FOR_LOG;
    appendLogOutput(request);
}

void RequestHandler::appendLogOutput(Request& request) {
    constexpr std::string_view OFFSET = "offset=";
    const std::string_view text = logging_.text();
    const std::string& query = request.param("QUERY_STRING");
    const int offset = query.starts_with(OFFSET) ? std::stoi(query.substr(OFFSET.size())) : 0;
    const auto id = static_cast<int>(request.id());
    if (offset == 0 || std::cmp_greater(offset, text.size())) {
        LOG_MESSAGE(DebugLight, "Sending all log data to request %i", id);
        return answerText(request, text);
    }
    if (std::cmp_equal(offset, text.size()))
        return;
    LOG_MESSAGE(DebugLight, "Sending log data with offset %i/%u to request %i", offset,
                static_cast<unsigned int>(text.size()), id);
    answerText(request, text.substr(static_cast<std::size_t>(offset))); // below 0 is out of range
}

void RequestHandler::sendScreen(Request& request) {
    request.writeHeader("Content-type: image/png\r\n\r\n");
    RequestStream out(request);
    out << screen_;
    request.end();
}

void RequestHandler::sendLogging() {
    logging_.reap();
    for (const auto& [id, request] : fcgi_.requests()) {
        if (!waitsFor(*request, WAITS_FOR_LOG))
            continue;
        try {
            appendLogOutput(*request);
        } catch (const std::exception&) {
            LOG_MESSAGE(Error, "Could not send logging to request %i", static_cast<int>(request->id()));
        }
    }
}
