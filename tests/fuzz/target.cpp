#include "target.h"

#include "apps/common/diagnostics/diagnostics.h"
#include "apps/common/diagnostics/logwriter.h"

#include <csignal>
#include <cstdlib>
#include <ctime>
#include <gtest/gtest.h>
#include <utility>

namespace {

gen::LogLevel logLevel = gen::Warn;

} // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    GTEST_FLAG_SET(break_on_failure, true);
    std::signal(SIGTRAP, [](int) { std::abort(); }); // libFuzzer keeps the input after SIGABRT only
    logWriter().setDevice("/dev/null");
    gComponentLogLevel = &logLevel;
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static bool isFirst = true;
    handle({reinterpret_cast<const char*>(data), size});
    if (std::exchange(isFirst, false))
        for (const int signal : {SIGINT, SIGTERM}) // the service's event loop has taken them
            std::signal(signal, SIG_DFL);
    return 0;
}

// In place of the C library's: waiting for the disk or for the next frame of a display would be most of the
// time.
extern "C" int fsync(int /*fd*/) {
    return 0;
}

extern "C" int clock_nanosleep(clockid_t /*clock*/, int /*flags*/, const timespec* /*time*/,
                               timespec* /*left*/) {
    return 0;
}
