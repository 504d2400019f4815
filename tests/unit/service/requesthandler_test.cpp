#include "apps/web/service/requesthandler.h"

#include "gen/code/memories.h"
#include "handlerfixture.h"

#include <gmock/gmock.h>

namespace {

using namespace records;
using namespace std::chrono_literals;
using namespace std::string_literals;
using testing::Contains;
using testing::HasSubstr;

TEST_F(RequestHandlerTest, RunsAfter100MsAndDeletesBeforeAndAfterAnswering) {
    EXPECT_TRUE(std::filesystem::is_empty(screen_.path("/update")));
    EXPECT_TRUE(std::filesystem::is_empty(screen_.path("/var/FOR")));
    run();
    send(request("/api/v1/update.cgi"));
    handler_->runPeriodic(now_ += 1h); // nothing has changed since the last run
    send(request("/x"));
    run(99'999'999ns);
    EXPECT_EQ(fcgi_.requests().size(), 2u);
    run(1ns);
    EXPECT_EQ(fcgi_.requests().size(), 0u);
    const std::vector<std::string> lines = log_.messages();
    const auto at = [&](const char* line) {
        return std::find(lines.begin(), lines.end(), std::string("DebugMost REQUEST") + line);
    };
    EXPECT_TRUE(at(" delete(1)") < at("    end(0, 1)") && at("    end(0, 1)") < at(" delete(0)"));
    EXPECT_NE(at(" delete(0)"), lines.end());
}

TEST_F(RequestHandlerTest, OneFailedAnswerDoesNotAffectTheOthers) {
    for (const int tag : {0, 1}) {
        send(request("/api/v1/update.cgi"));
        fcgi_.requests().rbegin()->second->context = tag;
        fcgi_.requests().rbegin()->second->close(); // its answer throws
    }
    const int waiting = send(request("/api/v1/update.cgi"));
    run();
    EXPECT_THAT(received(waiting), HasSubstr(R"("DisplayBrightness" : {"max":"10")"));
    EXPECT_THAT(log_.messages(), testing::IsSupersetOf({"Error Could not send updates to request 0",
                                                        "Error Could not send logging to request 1"}));
}

TEST_F(RequestHandlerTest, WritesItsLogLines) {
    const std::string params = pair("SCRIPT_FILENAME", "/f") + pair("REMOTE_ADDR", "r") +
                               pair("SERVER_ADDR", "s") + pair("HTTP_USER_AGENT", "u");
    memories_.base(4)[offsetof(MemStatic, VariableLogging)] = 2; // any value but 0
    shutdown(connectedClient(), SHUT_RD);
    send(clients_.front(), request("/api/v1/all.cgi", "b", false, 3, params));
    send(request("/api/v1/log.cgi"));
    send(request("/no"));
    run();
    handler_->handleEvent({EVENT_COUNT, 0, 0});
    handler_.reset();
    EventPoll closed;
    closed.close();
    EXPECT_NO_THROW(RequestHandler(closed, fcgi_)) << "a log start that fails";
    const std::string socket = std::to_string(clients_.front() + 1);
    std::ostringstream unknown;
    unknown << "Warn Event id " << EVENT_COUNT << " is beyond the " << EVENT_COUNT << " known events";
    const std::vector<std::string> lines = log_.messages();
    for (const std::string& line :
         {"DebugMost REQUEST  begin(" + socket + ", 3, false)"s, "DebugAll REQUEST     rx(3, 5, 1)"s,
          "DebugMost REQUEST handle(" + socket + ", 3, /api/v1/all.cgi)",
          "LogLight Request /f from r to s by u"s, "DebugAll REQUEST     tx(1, 3, 8)"s,
          "DebugMost REQUEST    end(0, 3)"s, "DebugMost REQUEST remove(0)"s,
          "DebugLight Sending all log data to request 1"s, "Warn Unknown script: '/no'"s, unknown.str(),
          R"(LogLight MemPersistent.DisplayBrightness: {"max":"10","min":"0","type":"int","value":"0"})"s,
          "Error Logging to web gui will not be available"s})
        EXPECT_THAT(lines, Contains(line));
}

TEST_F(RequestHandlerTest, OneElementIsPrintedLikeTheVariable) {
    const Variable list("MruLensFileList");
    std::ostringstream out;
    std::ostringstream whole;
    handler_->printVariable(list.mem, list.var, whole);
    handler_->printValue(list.mem, list.var, out, 9);
    EXPECT_THAT(whole.str(), testing::EndsWith("," + out.str() + "]"));
    handler_->printValue(list.mem, list.var, out, 10);
    EXPECT_THAT(out.str(), testing::ContainsRegex("\"ERROR\": \".*Index exceeds limit\"$"));
}

} // namespace
