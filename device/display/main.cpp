#include "apps/common/diagnostics/diagnostics.h"
#include "apps/common/event/eventpoll.h"
#include "apps/common/files/standarddescriptors.h"
#include "apps/common/sharedmemory/sharedmemory.h"
#include "apps/gui/common/fb-linux.h"
#include "device/display/framestamp.h"
#include "device/display/screen.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <list>
#include <optional>
#include <stdexcept>

namespace {

constexpr int BUFFERS = 3;
constexpr int USUAL_INTERVAL_MS = 50;
constexpr const char* USAGE = "usage: device-display [--interval MS]";

// The memories that another process has created.
class Memories {
public:
    Memories() {
        for (const MemoryDescriptor& memory : MEMORY_ARRAY) {
            SharedMemory& segment = segments_.emplace_back(memory.name, memory.size);
            segment.open();
            *memory.basePointer = segment.address();
        }
    }

private:
    std::list<SharedMemory> segments_;
};

// Shows the readings, each in a new frame, and draws only when a reading changes.
class Display {
public:
    Display() : framebuffer_("/dev/fb0", BUFFERS) { framebuffer_.init(); }

    void update() {
        const Reading reading = reader_.read();
        if (reading != shown_) {
            show(reading);
            shown_ = reading;
        }
    }

private:
    // The frame is drawn immediately before it is shown, so that a reader of the former frame has almost two
    // intervals before it is overwritten.
    void show(const Reading& reading) {
        unsigned char* const pixels = framebuffer_.backbufferAddress();
        const auto width = static_cast<int>(framebuffer_.width());
        const auto height = static_cast<int>(framebuffer_.height());
        if (pixels == nullptr)
            throwError(__FILE__, __LINE__, "The video memory does not hold %i buffers", BUFFERS);
        Canvas canvas(pixels, width, height);
        screen_.draw(canvas, reading);
        stampFrame(pixels, width, height, ++number_);
        framebuffer_.waitVSync();
        framebuffer_.show();
    }

    FbLinux framebuffer_;
    Reader reader_;
    Screen screen_;
    std::optional<Reading> shown_;
    std::uint32_t number_ = 0;
};

int intervalIn(int count, char* const* arguments) {
    if (count == 1)
        return USUAL_INTERVAL_MS;
    const int interval =
        count == 3 && std::strcmp(arguments[1], "--interval") == 0 ? std::atoi(arguments[2]) : 0;
    if (interval <= 0)
        throw std::runtime_error(USAGE);
    return interval;
}

void run(int intervalMs) {
    const Memories memories;
    const VariableDescriptor& level = Variable("AppGuiLogLevel").row();
    gComponentLogLevel = reinterpret_cast<gen::LogLevel*>(*level.memory + level.location);
    EventPoll poll;
    Display display;
    display.update();
    std::puts("ready");
    std::fflush(stdout);
    poll.setTimer(intervalMs);
    for (int result = 0; result != EventPoll::Terminate; result = poll.wait(-1, false))
        if (result == EventPoll::Tick)
            display.update();
}

} // namespace

int main(int argc, char** argv) {
    openStandardDescriptors();
    try {
        run(intervalIn(argc, argv));
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 1;
    }
    return 0;
}
