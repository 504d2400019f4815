#include "apps/common/diagnostics/diagnostics.h"

#include "tests/unit/diagnostics/logcapture.h"

#include <cerrno>
#include <gmock/gmock.h>

namespace {

using gen::LogLevel;
using testing::ElementsAre;
using testing::EndsWith;

class Diagnostics : public testing::Test {
protected:
    ~Diagnostics() override { gComponentLogLevel = nullptr; }
    LogCapture log_;
};

TEST_F(Diagnostics, LineHasAlignedColumnsAndIsCut) {
    const auto line = [](const char* file, int number, const std::string& message) {
        const LogCapture log;
        logMessage(nullptr, LogLevel::Warn, file, number, "%s %i", message.c_str(), 3);
        EXPECT_EQ(log.text().substr(0, 34), "    unit-diagnostics  Warn        ");
        return log.text().substr(34);
    };
    EXPECT_EQ(line("/some/where/main.cpp", 7, "radio"), "            main.cpp:   7 radio 3\n");
    EXPECT_EQ(line("a-source-with-a-long-name.cpp", 12345, "m"), "a-source-with-a-long-name.cpp:12345 m 3\n");
    EXPECT_EQ(line("x.cpp", 1, std::string(2000, 'm')),
              "               x.cpp:   1 " + std::string(485, 'm') + "\n");
    EXPECT_EQ(line(std::string(600, 's').c_str(), 1, "message"), std::string(511, 's') + "\n");
}

TEST_F(Diagnostics, LevelsBelowTheThresholdAreDropped) {
    LOG_MESSAGE(DebugAll, "no threshold yet");
    LogLevel threshold = LogLevel::Warn;
    gComponentLogLevel = &threshold;
    int evaluations = 0;
    LOG_MESSAGE(LogLight, "dropped %i", ++evaluations);
    EXPECT_EQ(evaluations, 0);
    LOG_MESSAGE(Warn, "equal");
    threshold = static_cast<LogLevel>(-5); // as any process may write it
    LOG_MESSAGE(DebugAll, "signed");
    logMessage(nullptr, static_cast<LogLevel>(8), "x.cpp", 1, "beyond");
    logMessage(nullptr, static_cast<LogLevel>(-1), "x.cpp", 1, "before");
    EXPECT_THAT(log_.messages(), ElementsAre("DebugAll no threshold yet", "Warn equal", "DebugAll signed",
                                             "Error beyond", "DebugAll before"));
}

TEST_F(Diagnostics, ErrorsIgnoreTheThresholdAndNameTheirLocation) {
    LogLevel threshold = static_cast<LogLevel>(100);
    gComponentLogLevel = &threshold;
    EXPECT_EQ(textThrownBy([] { throwError("web/request.cpp", 42, "%s is %i", "id", 5); }),
              "         request.cpp:  42 id is 5");
    errno = ENOENT;
    EXPECT_EQ(textThrownBy([] { throwErrorNumber("x.cpp", 9, "/Mem%s"); }),
              "               x.cpp:   9 /Mem%s: No such file or directory");
    errno = EACCES;
    EXPECT_EQ(textThrownBy([] { throwErrorNumberInfo("x.cpp", 9, "open"); }),
              "               x.cpp:   9 open: Permission denied");
    EXPECT_THAT(log_.messages(), ElementsAre("Error id is 5", "Error /Mem%s: No such file or directory",
                                             "LogLight open: Permission denied"));
}

TEST_F(Diagnostics, EachLineTriesToOpenTheDevice) {
    logWriter().setDevice("/nonexistent/log");
    testing::internal::CaptureStderr();
    LOG_MESSAGE(Warn, "lost");
    EXPECT_THAT(textThrownBy([] { throwError("x.cpp", 1, "also lost"); }), EndsWith("also lost"));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "FATAL: Logging: Write failed: Bad file descriptor\n"
                                                      "FATAL: Logging: Write failed: Bad file descriptor\n");
    const LogCapture again;
    LOG_MESSAGE(Warn, "written");
    EXPECT_THAT(again.messages(), ElementsAre("Warn written"));
}

} // namespace
