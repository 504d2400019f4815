#include "apps/web/service/log/logpolls.h"

#include "apps/common/diagnostics/diagnostics.h"
#include "apps/web/service/request.h"

#include <exception>
#include <string_view>
#include <utility>

namespace {

constexpr int WAITS_FOR_LOG = 1;

int requestedOffset(const Request& request) {
    constexpr std::string_view KEY = "offset=";
    const std::string& query = request.param("QUERY_STRING");
    return query.starts_with(KEY) ? std::stoi(query.substr(KEY.size())) : 0;
}

} // namespace

void LogPolls::open(Request& request) {
    request.writeHeader("Content-type: text/html\r\n\r\n");
    request.output() << text_.size() << "\r\n";
    request.freeBody();
    request.context = WAITS_FOR_LOG;
    appendOutput(request);
}

void LogPolls::appendOutput(Request& request) {
    const std::string_view text = text_;
    const int offset = requestedOffset(request);
    const auto id = static_cast<int>(request.id());
    if (offset == 0 || std::cmp_greater(offset, text.size())) {
        LOG_MESSAGE(DebugLight, "Sending all log data to request %i", id);
        request.write(text);
        return request.end();
    }
    if (std::cmp_equal(offset, text.size()))
        return;
    LOG_MESSAGE(DebugLight, "Sending log data with offset %i/%u to request %i", offset,
                static_cast<unsigned int>(text.size()), id);
    request.write(text.substr(static_cast<std::size_t>(offset))); // a negative offset is out of range
    request.end();
}

void LogPolls::answer(const std::map<unsigned int, Request*>& open) {
    for (const auto& [id, request] : open) {
        if (!request->waitsFor(WAITS_FOR_LOG))
            continue;
        try {
            appendOutput(*request);
        } catch (const std::exception&) {
            LOG_MESSAGE(Error, "Could not send logging to request %i", static_cast<int>(request->id()));
        }
    }
}
