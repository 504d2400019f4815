#include "apps/common/diagnostics/diagnostics.h"
#include "apps/common/event/eventpoll.h"
#include "apps/common/event/serverconnection.h"
#include "apps/common/files/standarddescriptors.h"
#include "device/simulation/accessorybus.h"
#include "device/simulation/accessoryupdater.h"
#include "device/simulation/battery.h"
#include "device/simulation/camera.h"
#include "device/simulation/content.h"
#include "device/simulation/devicememories.h"
#include "device/simulation/hostupdater.h"
#include "device/simulation/lensaxis.h"
#include "device/simulation/optics.h"
#include "device/simulation/options.h"
#include "device/simulation/puller.h"
#include "device/simulation/radio.h"
#include "device/simulation/scene.h"
#include "device/simulation/settings.h"
#include "device/simulation/soak.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <exception>

namespace {

constexpr int FRAME_MS = 40;
constexpr int MOST_FRAMES = 500; // of one tick; a simulation that is further behind skips the others

template <typename Part, typename... Arguments>
void add(Scene& scene, double intervalMs, Arguments&&... arguments) {
    scene.add(std::make_unique<Part>(std::forward<Arguments>(arguments)...), intervalMs);
}

// Hands first, then the motors that follow them, then the values that depend on the lens position.
void addUsualActivity(Scene& scene) {
    using Marks = std::vector<Puller::Mark>;
    add<Puller>(scene, FRAME_MS, "Knob", "FocusTargetValue", FOCUS_SCALE,
                Marks{{0.35, 2500, 3000},
                      {0.82, 4000, 2000},
                      {0.86, 900, 4000},
                      {0.55, 1200, 2500},
                      {0.15, 3000, 5000}});
    add<Puller>(scene, FRAME_MS, "Slider", "IrisTargetValue", IRIS_SCALE,
                Marks{{0.3, 3000, 25000}, {0.45, 6000, 20000}, {0.2, 4000, 30000}});
    add<Puller>(scene, FRAME_MS, "JoystickY", "ZoomTargetValue", ZOOM_SCALE,
                Marks{{0.9, 8000, 15000}, {0.5, 5000, 25000}, {0.1, 6000, 20000}});
    add<LensAxis>(scene, FRAME_MS,
                  LensAxis::Names{"FocusTargetValue", "FocusActPosNorm", "FocusMotor", "LensActFocus"},
                  FOCUS_SCALE);
    add<LensAxis>(scene, FRAME_MS,
                  LensAxis::Names{"IrisTargetValue", "IrisActPosNorm", "IrisMotor", "LensActIris"},
                  IRIS_SCALE);
    add<LensAxis>(scene, FRAME_MS,
                  LensAxis::Names{"ZoomTargetValue", "ZoomActPosNorm", "ZoomMotor", "LensActZoom"},
                  ZOOM_SCALE);
    add<LensAxis>(scene, FRAME_MS, LensAxis::Names{"AuxTargetValue", "AUXActPosNorm", "AUXMotor", nullptr},
                  AUX_SCALE);
    add<Optics>(scene, 2 * FRAME_MS);
    add<Camera>(scene, 2 * FRAME_MS);
    add<Battery>(scene, 1000);
    add<Radio>(scene, 500);
    add<Settings>(scene, 1000);
    add<HostUpdater>(scene, 2 * FRAME_MS);
    add<AccessoryUpdater>(scene, 2 * FRAME_MS);
    add<AccessoryBus>(scene, 1000, "Lens Data Display", 880213);
}

void fillScene(Scene& scene, const Options& options) {
    if (options.changes > 0)
        add<Soak>(scene, 0, options.changes);
    else if (!options.isStill)
        addUsualActivity(scene);
}

// Steps the scene through all of its frames from one time to another, so that a fast scene makes as many
// changes as a slow one.
void stepFrames(Scene& scene, double fromMs, double toMs) {
    double timeMs = std::max(fromMs, toMs - MOST_FRAMES * FRAME_MS);
    while ((timeMs += FRAME_MS) < toMs)
        scene.step(timeMs);
    scene.step(toMs);
}

// Plays the scene until SIGINT or SIGTERM.
void play(Scene& scene, EventPoll& poll, const Options& options) {
    using Clock = std::chrono::steady_clock;
    const Clock::time_point begin = Clock::now();
    double playedMs = 0;
    poll.setTimer(options.changes > 0 ? options.intervalMs : FRAME_MS);
    for (;;) {
        const int result = poll.wait(-1, false);
        if (result == EventPoll::Terminate)
            return;
        if (result == EventPoll::Tick) {
            const std::chrono::duration<double, std::milli> elapsed = Clock::now() - begin;
            const double timeMs = elapsed.count() * options.speed;
            if (options.changes > 0)
                scene.step(timeMs);
            else
                stepFrames(scene, playedMs, timeMs);
            playedMs = timeMs;
        }
    }
}

void waitForEnd(EventPoll& poll) {
    while (poll.wait(-1, false) != EventPoll::Terminate) {
    }
}

void run(const Options& options) {
    DeviceMemories memories;
    const VariableDescriptor& level = Variable("AppHwControllerLogLevel").row();
    gComponentLogLevel = reinterpret_cast<gen::LogLevel*>(*level.memory + level.location);
    EventPoll poll;
    ServerConnection connection(poll);
    connection.sendLimit = std::chrono::seconds(30); // a lost event would end the simulation
    gServerConnection = &connection;
    fillContent();
    Scene scene;
    fillScene(scene, options);
    LOG_MESSAGE(LogLight, "The device is ready");
    std::puts("ready");
    std::fflush(stdout);
    if (options.isStill) {
        waitForEnd(poll);
        return;
    }
    connection.handler = &scene;
    for (const std::uint32_t id : scene.interests())
        connection.subscribe({id, 0, 0});
    play(scene, poll, options);
}

} // namespace

int main(int argc, char** argv) {
    openStandardDescriptors();
    try {
        run(parseOptions(argc, argv));
    } catch (const std::exception& error) {
        if (EventPoll::shouldTerminate()) // a signal also ends the wait for a broker that does not read
            return 0;
        std::fprintf(stderr, "%s\n", error.what());
        return 1;
    }
    return 0;
}
