#pragma once

#include "apps/web/service/requesthandler.h"
#include "tests/unit/gui/virtualscreen.h"
#include "tests/unit/introspection/fixture.h"
#include "tests/unit/service/records.h"

#include <fstream>
#include <optional>

/// The handler of a device whose card and register are empty and which has no dmesg.
class RequestHandlerTest : public records::ListenerTest {
protected:
    RequestHandlerTest() {
        for (const char* device : {"/dev/mem", "/dev/mmcblk1"}) {
            std::ofstream(screen_.path(device)).close();
            std::filesystem::resize_file(screen_.path(device), 0x20CD000);
        }
        setenv("PATH", "/none", 1);
        for (const char* leftover : {"/update/file-from-app", "/var/FOR/.incomplete"}) {
            std::filesystem::create_directories(std::filesystem::path(screen_.path(leftover)).parent_path());
            std::ofstream(screen_.path(leftover)).close();
        }
        handler_.emplace(poll_, fcgi_);
        fcgi_.callback = &*handler_;
    }
    ~RequestHandlerTest() override { setenv("PATH", path_.c_str(), 1); }

    /// One run with the variable changed, `later` than the one before.
    void run(std::chrono::nanoseconds later = std::chrono::hours(1)) {
        handler_->handleEvent({gen::EventId::VarDisplayBrightnessChanged, 0, 0});
        handler_->runPeriodic(now_ += later);
    }

    const std::string path_ = getenv("PATH");
    LogCapture log_;
    VirtualScreen screen_{4, 4};
    Memories memories_;
    RequestHandler::Clock::time_point now_ = RequestHandler::Clock::now();
    std::optional<RequestHandler> handler_;
};
