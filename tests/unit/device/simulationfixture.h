#pragma once

#include "apps/common/event/eventpoll.h"
#include "apps/common/event/serverconnection.h"
#include "device/simulation/content.h"
#include "device/simulation/scene.h"

#include <array>
#include <gtest/gtest.h>
#include <memory>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <vector>

/// A device whose memories are the test's own, and whose broker takes all events and returns none.
class SimulationTest : public testing::Test {
protected:
    SimulationTest() {
        for (const MemoryDescriptor& memory : MEMORY_ARRAY)
            *memory.basePointer = memories_.emplace_back(memory.size).data();
        gServerConnection = &connection_;
        fillContent();
    }

    ~SimulationTest() override {
        gServerConnection = nullptr;
        for (const MemoryDescriptor& memory : MEMORY_ARRAY)
            *memory.basePointer = nullptr;
        shutdown(ends_[1], SHUT_RDWR);
        broker_.join();
        close(ends_[1]);
    }

    template <typename Part, typename... Arguments>
    void add(Arguments... arguments) {
        scene_.add(std::make_unique<Part>(arguments...), 0);
    }

    /// Plays the scene up to `endMs`, a frame at a time.
    void playTo(double endMs) {
        for (; timeMs_ < endMs; timeMs_ += 40)
            scene_.step(timeMs_);
    }

    /// Sets a variable as another process does: with an event to the scene.
    void setFromElsewhere(const char* name, const char* text) {
        Variable variable(name);
        variable.setText(text);
        scene_.handleEvent({variable.eventId(), 0, 0});
    }

    static std::array<int, 2> makeEnds() {
        std::array<int, 2> ends{};
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()), 0);
        return ends;
    }

    static void takeAll(int fd) {
        char bytes[4096];
        while (read(fd, bytes, sizeof bytes) > 0) {
        }
    }

    std::vector<std::vector<char>> memories_;
    std::array<int, 2> ends_ = makeEnds();
    std::thread broker_{takeAll, ends_[1]};
    EventPoll poll_;
    ServerConnection connection_{poll_, ends_[0]};
    Scene scene_;
    double timeMs_ = 0;
};
