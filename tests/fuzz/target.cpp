#include "target.h"

#include "apps/common/diagnostics/diagnostics.h"
#include "apps/common/diagnostics/logwriter.h"

#include <csignal>
#include <gtest/gtest.h>
#include <utility>

namespace {

gen::LogLevel logLevel = gen::Warn;

} // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    GTEST_FLAG_SET(throw_on_failure, true);
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

// In place of the C library's: waiting for the disk would be most of the time.
extern "C" int fsync(int /*fd*/) {
    return 0;
}
