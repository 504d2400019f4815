#include "apps/web/service/variables/updatepolls.h"

#include "apps/common/diagnostics/diagnostics.h"
#include "apps/common/introspection/introspection.h"
#include "apps/web/service/request.h"
#include "apps/web/service/variables/updatedocument.h"
#include "apps/web/service/variables/variabletree.h"
#include "gen/code/introspection_gen.h"
#include "gen/code/memories.h"

#include <cstddef>
#include <exception>

namespace {

constexpr int WAITS_FOR_UPDATE = 0;

void send(Request& request, const std::string& document) {
    try {
        request.output() << "{\r\n"
                         << "\"id\": " << request.requestId() << ",\r\n";
        request.write(document);
        request.end();
    } catch (const std::exception&) {
        LOG_MESSAGE(Error, "Could not send updates to request %i", static_cast<int>(request.id()));
    }
}

} // namespace

void UpdatePolls::markAll() {
    for (unsigned int mem = 0; mem < Introspection::getMemCount(); ++mem)
        for (unsigned int var = 0; var < Introspection::getVarCount(mem); ++var)
            changed_.set(Introspection::getVarEvent(mem, var).id);
}

void UpdatePolls::handleEvent(const Notify& notify) {
    if (!isKnownEvent(notify))
        return;
    if (gMemStatic != nullptr && gMemStatic[offsetof(MemStatic, VariableLogging)] != 0)
        logChange(notify);
    changed_.set(notify.id);
}

void UpdatePolls::logChange(const Notify& notify) {
    unsigned int mem = 0;
    unsigned int var = 0;
    Introspection::getVarLocation(notify, mem, var);
    const std::string text = std::string(Introspection::getMemName(mem)) + "." +
                             Introspection::getVarName(mem, var) + ": " + tree_.variable(mem, var);
    LOG_MESSAGE(LogLight, "%s", text.c_str());
}

void UpdatePolls::hold(Request& request) {
    request.freeBody();
    request.context = WAITS_FOR_UPDATE;
}

void UpdatePolls::answer(const std::map<unsigned int, Request*>& open) {
    if (changed_.isEmpty())
        return;
    const std::string document = takeDocument();
    for (const auto& [id, request] : open)
        if (request->waitsFor(WAITS_FOR_UPDATE))
            send(*request, document);
}

std::string UpdatePolls::takeDocument() {
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
