#include "apps/common/event/serverconnection.h"
#include "device/simulation/accessoryupdater.h"
#include "device/simulation/content.h"
#include "device/simulation/hostupdater.h"
#include "device/simulation/scene.h"
#include "device/simulation/soak.h"
#include "device/simulation/updatefile.h"

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <memory>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace {

// A device with memories of its own and a broker that discards all events.
class Simulation : public testing::Test {
protected:
    Simulation() {
        for (const MemoryDescriptor& memory : MEMORY_ARRAY)
            *memory.basePointer = memories_.emplace_back(memory.size).data();
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends_), 0);
        connection_ = std::make_unique<ServerConnection>(poll_, ends_[0]);
        gServerConnection = connection_.get();
        broker_ = std::thread([this] {
            char bytes[4096];
            while (read(ends_[1], bytes, sizeof bytes) > 0) {
            }
        });
        fillContent();
    }

    ~Simulation() override {
        gServerConnection = nullptr;
        for (const MemoryDescriptor& memory : MEMORY_ARRAY)
            *memory.basePointer = nullptr;
        shutdown(ends_[1], SHUT_RDWR);
        broker_.join();
        close(ends_[1]);
        std::filesystem::remove(path_);
    }

    UpdateFile readFile(const std::string& content) {
        std::ofstream(path_) << content;
        return readUpdateFile(path_);
    }

    // Names an update file as another process does.
    void offer(const std::string& content, const char* nameVariable) {
        readFile(content);
        Variable name(nameVariable);
        name.setText(path_);
        scene_.handleEvent({name.eventId(), 0, 0});
    }

    // Plays the scene for `durationMs` and returns the states that the variable goes through.
    std::string play(double durationMs, const char* variable) {
        std::string states;
        const double endMs = timeMs_ + durationMs;
        for (std::string last; timeMs_ < endMs; timeMs_ += 40) {
            scene_.step(timeMs_);
            if (last != Variable(variable).text())
                states += (last = Variable(variable).text()) + " ";
        }
        return states;
    }

    const std::string path_ = "/tmp/simulation-" + std::to_string(getpid());
    std::vector<std::vector<char>> memories_;
    int ends_[2];
    EventPoll poll_;
    std::unique_ptr<ServerConnection> connection_;
    std::thread broker_;
    Scene scene_;
    double timeMs_ = 0;
};

TEST_F(Simulation, FirstLineDecidesAboutUpdateFile) {
    EXPECT_EQ(readFile("firmware;A;1;16").verdict, "FileValid");
    EXPECT_EQ(readFile("firmware;A;1.2.3;1;fails\r\n" + std::string(1000, '\0')).verdict, "FileValid");
    for (const char* content : {"", "firmware", "Firmware;A;1;1\n", "firmware;;1;1\n", "firmware;A;;1\n",
                                "firmware;A;1;0\n", "firmware;A;1;17\n", "firmware;A;1;x\n",
                                "firmware;A;12345678901234567890;1\n", "firmware;A;1;1;\n"})
        EXPECT_EQ(readFile(content).verdict, "FileCorrupt") << content;
    EXPECT_EQ(readUpdateFile("/nonexistent").verdict, "FileNotFound");
}

TEST_F(Simulation, HostUpdateGoesThroughItsStates) {
    scene_.add(std::make_unique<HostUpdater>(), 0);
    const char* const state = "HostUpdateFileState";
    const std::tuple<const char*, const char*, const char*, const char*> cases[] = {
        {"something", "CheckingFile FileCorrupt ", "FileCorrupt ", "4.2.0"},
        {"firmware;Other;4.3.0;1", "CheckingFile FileNotCompatible ", "FileNotCompatible ", "4.2.0"},
        {"firmware;Lens Control;4.3.0;1;fails", "CheckingFile FileValid ", "CopyingFile CopyingFailed ",
         "4.2.0"},
        {"firmware;Lens Control;4.3.0;1", "CheckingFile FileValid ", "CopyingFile Rebooting Success ",
         "4.3.0"},
    };
    for (const auto& [content, checked, started, version] : cases) {
        offer(content, "HostUpdateFileName");
        EXPECT_EQ(play(2000, state), checked);
        Variable("HostUpdateStart").setBool(true);
        EXPECT_EQ(play(20000, state), started);
        EXPECT_EQ(Variable("ProductVersion").text(), version);
        EXPECT_EQ(Variable("HostUpdateFileName").text(), "") << "so that the next upload is a change";
    }
    EXPECT_FALSE(Variable("HostUpdateStart").toBool());
}

TEST_F(Simulation, AccessoryUpdateGoesThroughItsStates) {
    scene_.add(std::make_unique<AccessoryUpdater>(), 0);
    AccessoryList list;
    const int place = list.find("Ultrasonic Ranger", 5512);
    const char* const state = "RBusUpdateState";
    const std::string good = "firmware;Ultrasonic Ranger;2.0.0;2";
    const auto check = [&](const std::string& content, int serial) {
        offer(content, "RBusUpdateFileName");
        Variable("RBusUpdateDeviceName").setText("Ultrasonic Ranger");
        Variable("RBusUpdateDeviceSerial").setInt(serial);
        const std::string states = play(2000, state);
        Variable("RBusUpdateStart").setBool(true);
        return states;
    };
    EXPECT_EQ(check(good, 5513), "CheckingFile DeviceNotFound ");
    EXPECT_EQ(check("x", 5512), "CheckingFile FileCorrupt ");
    EXPECT_EQ(check("firmware;Other;2.0.0;2", 5512), "CheckingFile FileNotCompatible ");
    EXPECT_EQ(check(good + ";fails", 5512), "CheckingFile FileValid ");
    EXPECT_EQ(play(10000, state), "CopyingFile Failed ");
    check(good, 5512);
    EXPECT_EQ(play(3800, state), "CopyingFile ");
    EXPECT_NEAR(Variable("RBusUpdateProgress").toInt(), 50, 3) << "of the second part";
    list.setConnected(place, false);
    EXPECT_EQ(play(1000, state), "Failed ");
    list.setConnected(place, true);
    check(good, 5512);
    EXPECT_EQ(play(6000, state), "CopyingFile Rebooting ");
    EXPECT_FALSE(list.isConnected(place));
    EXPECT_EQ(play(3000, state), "Rebooting Success ");
    EXPECT_TRUE(list.isConnected(place));
}

// The benchmarks and the soak rely on these values.
TEST_F(Simulation, SoakChangesItsVariablesToPredictableValues) {
    Soak soak(500);
    for (int step = 1; step <= 7; ++step)
        soak.step(0);
    // RadioPower, RadioBoost and FocusTorque (1 to 4) are its variables 0, 1 and 2.
    EXPECT_TRUE(Variable("RadioPower").toBool());
    EXPECT_FALSE(Variable("RadioBoost").toBool());
    EXPECT_EQ(Variable("FocusTorque").toInt(), 1 + (7 + 2) % 4);
    for (int step = 8; step < 1100; ++step)
        EXPECT_NO_THROW(soak.step(0)) << "a value is out of bounds";
}

} // namespace
