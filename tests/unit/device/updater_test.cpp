#include "apps/common/introspection/introspection.h"
#include "device/simulation/accessorybus.h"
#include "device/simulation/accessoryupdater.h"
#include "device/simulation/hostupdater.h"
#include "device/simulation/updatefile.h"
#include "simulationfixture.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>

namespace {

using testing::ElementsAre;

class UpdaterTest : public SimulationTest {
protected:
    UpdaterTest() {
        char name[] = "/tmp/updater-XXXXXX";
        folder_ = mkdtemp(name);
        path_ = folder_ + "/file";
    }
    ~UpdaterTest() override { std::filesystem::remove_all(folder_); }

    void write(const std::string& content) { std::ofstream(path_) << content; }

    /// Plays up to `endMs` and returns the states that the variable goes through.
    std::vector<std::string> statesTo(double endMs, const char* variable) {
        std::vector<std::string> states;
        Variable state(variable);
        for (; timeMs_ < endMs; timeMs_ += 40) {
            scene_.step(timeMs_);
            if (states.empty() || states.back() != state.text())
                states.push_back(state.text());
        }
        return states;
    }

    std::vector<std::string> hostStates(const std::string& content) {
        write(content);
        setFromElsewhere("HostUpdateFileName", path_.c_str());
        return statesTo(timeMs_ + 2000, "HostUpdateFileState");
    }

    std::vector<std::string> accessoryStates(const std::string& content, const char* serial) {
        write(content);
        setFromElsewhere("RBusUpdateFileName", path_.c_str());
        Variable("RBusUpdateDeviceName").setText("Ultrasonic Ranger");
        Variable("RBusUpdateDeviceSerial").setText(serial);
        return statesTo(timeMs_ + 2000, "RBusUpdateState");
    }

    std::string folder_;
    std::string path_;
    AccessoryList list_;
};

TEST_F(UpdaterTest, AFirmwareFileIsKnownByItsFirstLine) {
    const auto verdict = [this](const std::string& content) {
        write(content);
        return readUpdateFile(path_).verdict;
    };
    EXPECT_EQ(verdict("firmware;A;1;16"), "FileValid");
    EXPECT_EQ(verdict("firmware;A;1.2.3;1;fails\r\n" + std::string(1000, '\0')), "FileValid");
    for (const char* content :
         {"", "firmware", "Firmware;A;1;1\n", "firmware;;1;1\n", "firmware;A;;1\n", "firmware;A;1;0\n",
          "firmware;A;1;17\n", "firmware;A;1;x\n", "firmware;A;12345678901234567890;1\n", "firmware;A;1;1;\n",
          "\nfirmware;A;1;1\n"})
        EXPECT_EQ(verdict(content), "FileCorrupt") << content;
    EXPECT_EQ(readUpdateFile(folder_ + "/none").verdict, "FileNotFound");
    EXPECT_EQ(readUpdateFile(folder_).verdict, "FileCorrupt");
}

TEST_F(UpdaterTest, TheControllerGoesThroughItsUpdateOnceItIsTold) {
    add<HostUpdater>();
    EXPECT_THAT(hostStates("firmware;Lens Control;4.3.0;1\n"), ElementsAre("CheckingFile", "FileValid"));
    EXPECT_EQ(Variable("HostUpdateFileFirmwareVersion").text(), "4.3.0");
    Variable("HostUpdateStart").setBool(true);
    EXPECT_THAT(statesTo(20000, "HostUpdateFileState"), ElementsAre("CopyingFile", "Rebooting", "Success"));
    EXPECT_EQ(Variable("ProductVersion").text(), "4.3.0");
    EXPECT_FALSE(Variable("HostUpdateStart").toBool());
    EXPECT_EQ(Variable("HostUpdateFileName").text(), "") << "so that the next upload is a change";
}

TEST_F(UpdaterTest, TheControllerRefusesWhatIsNotForItAndTellsOfAFailure) {
    add<HostUpdater>();
    EXPECT_THAT(hostStates("something"), ElementsAre("CheckingFile", "FileCorrupt"));
    EXPECT_THAT(hostStates("firmware;Other;4.3.0;1"), ElementsAre("CheckingFile", "FileNotCompatible"));
    EXPECT_THAT(hostStates("firmware;Lens Control;4.3.0;1;fails"), ElementsAre("CheckingFile", "FileValid"));
    Variable("HostUpdateStart").setBool(true);
    EXPECT_THAT(statesTo(30000, "HostUpdateFileState"), ElementsAre("CopyingFile", "CopyingFailed"));
    EXPECT_EQ(Variable("ProductVersion").text(), "4.2.0");
}

TEST_F(UpdaterTest, AnAccessoryIsWrittenPartByPartAndComesBackWithItsNewVersion) {
    add<AccessoryUpdater>();
    const int place = list_.find("Ultrasonic Ranger", 5512);
    EXPECT_THAT(accessoryStates("firmware;Ultrasonic Ranger;2.0.0;3", "5512"),
                ElementsAre("CheckingFile", "FileValid"));
    Variable("RBusUpdateStart").setBool(true);
    const double begin = timeMs_;
    playTo(begin + 3800);
    EXPECT_EQ(Variable("RBusUpdateCount").toInt(), 3);
    EXPECT_EQ(Variable("RBusUpdateIndex").toInt(), 1);
    EXPECT_NEAR(Variable("RBusUpdateProgress").toInt(), 50, 3);
    EXPECT_EQ(Variable("RBusUpdatePartName").text(), "Part 2");
    EXPECT_THAT(statesTo(begin + 8000, "RBusUpdateState"), ElementsAre("CopyingFile", "Rebooting"));
    EXPECT_EQ(Variable("RBusUpdateProgress").toInt(), 100);
    EXPECT_FALSE(list_.isConnected(place));
    EXPECT_THAT(statesTo(begin + 15000, "RBusUpdateState"), ElementsAre("Rebooting", "Success"));
    EXPECT_TRUE(list_.isConnected(place));
    EXPECT_NE(Introspection::getVarValue(7, 1, place).find(R"("RBusMainSwVersion":"2.0.0")"),
              std::string::npos);
}

TEST_F(UpdaterTest, AnAccessorysUpdateFailsForEachOfItsReasons) {
    add<AccessoryUpdater>();
    const std::string good = "firmware;Ultrasonic Ranger;2.0.0;2";
    EXPECT_THAT(accessoryStates(good, "5513"), ElementsAre("CheckingFile", "DeviceNotFound"));
    EXPECT_THAT(accessoryStates("x", "5512"), ElementsAre("CheckingFile", "FileCorrupt"));
    EXPECT_THAT(accessoryStates("firmware;Other;2.0.0;2", "5512"),
                ElementsAre("CheckingFile", "FileNotCompatible"));
    accessoryStates(good + ";fails", "5512");
    Variable("RBusUpdateStart").setBool(true);
    EXPECT_THAT(statesTo(timeMs_ + 10000, "RBusUpdateState"), ElementsAre("CopyingFile", "Failed"));
    EXPECT_EQ(Variable("RBusUpdateIndex").toInt(), 1);
    accessoryStates(good, "5512");
    Variable("RBusUpdateStart").setBool(true);
    playTo(timeMs_ + 1000);
    list_.setConnected(list_.find("Ultrasonic Ranger", 5512), false);
    EXPECT_THAT(statesTo(timeMs_ + 1000, "RBusUpdateState"), ElementsAre("Failed"));
}

TEST_F(UpdaterTest, AnAccessoryComesAndGoesUnlessOneIsBeingUpdated) {
    add<AccessoryBus>("Lens Data Display", 880213);
    const int place = list_.find("Lens Data Display", 880213);
    playTo(44000);
    EXPECT_TRUE(list_.isConnected(place));
    playTo(46000);
    EXPECT_FALSE(list_.isConnected(place));
    playTo(60000);
    EXPECT_TRUE(list_.isConnected(place));
    Variable("RBusUpdateState").setText("CopyingFile");
    playTo(200000);
    EXPECT_TRUE(list_.isConnected(place));
}

} // namespace
