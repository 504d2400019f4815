#include "apps/web/service/qorapp.h"

#include "apps/common/diagnostics/diagnostics.h"
#include "apps/common/event/events_gen.h"
#include "apps/web/service/app/firmwareupdate.h"
#include "exchange.h"
#include "gen/code/memories.h"

#include <csignal>
#include <cstddef>
#include <cstring>
#include <dlfcn.h>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <regex>
#include <sys/resource.h>
#include <sys/stat.h>

namespace {

std::vector<std::string> synced; // paths in order, and the targets of renames
bool failSync = false;

} // namespace

// In place of the C library's.
extern "C" int fsync(int fd) {
    synced.push_back(std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(fd)));
    errno = EIO;
    return failSync ? -1 : 0;
}

extern "C" int rename(const char* from, const char* to) {
    synced.push_back(std::string("-> ") + to);
    static auto* const next = reinterpret_cast<int (*)(const char*, const char*)>(dlsym(RTLD_NEXT, "rename"));
    return next(from, to);
}

namespace {

using namespace std::string_literals;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
namespace EventId = gen::EventId;

const std::string SUCCESS = R"({"result": "Success" })";
const std::string NO_SUCH_FILE = R"({"result": "No such file" })";
const std::string WRITE_ERROR = R"({"result": "Write error" })";
const std::string OPEN_ERROR = "{\"result\": \"Open error\" }\r\n";
const std::string UNKNOWN = R"({"result": "Unknown request" })";

class QorAppTest : public testing::Test, protected LogCapture, protected AppExchange {
protected:
    ~QorAppTest() override {
        synced.clear();
        gComponentLogLevel = nullptr;
    }

    std::string file(const char* method, const std::string& name, const std::string& body = "") {
        return ask("/lenstables/file" + name, method, body);
    }

    std::string upload(const std::string& device, const std::string& firmware) {
        return ask("/device/update", "POST",
                   "--b\nname=deviceid\n\n" + device + "\r\n--b\nname=file\n\n" + firmware + "\r\n--b--",
                   "multipart/form-data; boundary=b");
    }

    MemExternalDevices& accessories() { return *reinterpret_cast<MemExternalDevices*>(memories.base(7)); }
    MemMedia& media() { return *reinterpret_cast<MemMedia*>(memories.base(14)); }

    std::vector<std::uint32_t> posted() {
        std::vector<std::uint32_t> ids;
        for (const Notify& event : events.take())
            ids.push_back(event.id);
        return ids;
    }

    const std::string folder_ = root + "/var/LDA/";
};

TEST_F(QorAppTest, DeviceInfoHasIdentitySpaceAndAccessories) {
    std::memcpy(memories.base(0), "A \"name\" of twenty cFirmware of twenty..", 40);
    accessories().RBusDeviceList[1] = {1, -5, "FOCUS", "1.2", "", "", 0, 0};
    accessories().RBusDeviceList[15] = {1, 1234, "", "", "", "", 0, 0};
    std::memset(accessories().RBusDeviceList[15].RBusDeviceName, 'x', 50);
    std::memset(accessories().RBusDeviceList[15].RBusMainSwVersion, 'v', 50);
    const std::regex sizes("(space_(total|available)\": )[0-9]+");
    const auto accessory = [](const std::string& name, const std::string& serial,
                              const std::string& version) {
        return "    {\r\n      \"_id\": \"" + name + "-" + serial + "\",\r\n      \"name\": \"" + name +
               "\",\r\n      \"serialnumber\": \"" + serial + "\",\r\n      \"firmwareversion\": \"" +
               version + "\"\r\n    }";
    };
    EXPECT_EQ(std::regex_replace(ask("/device/info", "POST"), sizes, "$1N"),
              "{\r\n  \"_id\": \"BOARD-K1-7\",\r\n"
              "  \"name\": \"A \"name\" of twenty c\",\r\n"
              "  \"serialnumber\": \"K1-7\",\r\n"
              "  \"firmwareversion\": \"Firmware of twenty..\",\r\n"
              "  \"space_total\": N,\r\n"
              "  \"space_available\": N,\r\n"
              "  \"devices\": [\r\n" +
                  accessory("FOCUS", "-5", "1.2") + ", \r\n" +
                  accessory(std::string(50, 'x'), "1234", std::string(50, 'v')) + "\r\n  ]\r\n}\r\n");
}

TEST_F(QorAppTest, StatusCountsProgressOverAllParts) {
    const auto status = [&](int progress, int index, int count, int state) {
        accessories().RBusUpdateProgress = progress;
        accessories().RBusUpdateIndex = index;
        accessories().RBusUpdateCount = count;
        accessories().RBusUpdateState = state;
        return ask("/device/statusXYZ");
    };
    EXPECT_EQ(status(50, 1, 2, 6), R"({"status": "CopyingFile", "progress": 75 })");
    EXPECT_EQ(status(50, 1, 0, 0), R"({"status": "NoFileSelected", "progress": 0 })");
    EXPECT_EQ(status(INT32_MIN, 0, -1, 14), R"({"status": "INVALID_VALUE:14", "progress": -2147483648 })");
    EXPECT_THAT(messages(), Contains("LogLight Update Status: INVALID_VALUE:14, -2147483648%"));
    EXPECT_THAT(posted(), IsEmpty());
}

TEST_F(QorAppTest, FirstStatusOfAValidFileStartsTheUpdate) {
    accessories().RBusUpdateState = 2;
    media().HostUpdateFileState = 2;
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(ask("/device/status"), R"({"status": "FileValid", "progress": 0 })");
        EXPECT_EQ(hostUpdateStatus().state, "Rebooting");
    }
    EXPECT_EQ(accessories().RBusUpdateStart + media().HostUpdateStart, 2);
    EXPECT_THAT(posted(),
                ElementsAre(EventId::VarRBusUpdateStartChanged, EventId::VarHostUpdateStartChanged));
}

TEST_F(QorAppTest, AccessoryFileNameAlwaysPostsAChange) {
    accessories().RBusUpdateState = 10;
    accessories().RBusUpdateProgress = 100;
    offerAccessoryFile("A-B", " +7x");
    EXPECT_THAT(posted(),
                ElementsAre(EventId::VarRBusUpdateStateChanged, EventId::VarRBusUpdateProgressChanged,
                            EventId::VarRBusUpdateFileNameChanged, EventId::VarRBusUpdateDeviceSerialChanged,
                            EventId::VarRBusUpdateDeviceNameChanged));
    EXPECT_STREQ(accessories().RBusUpdateDeviceName, "A-B");
    EXPECT_EQ(accessories().RBusUpdateDeviceSerial, 7);
    offerAccessoryFile("A-B", "7");
    EXPECT_THAT(posted(),
                ElementsAre(EventId::VarRBusUpdateFileNameChanged, EventId::VarRBusUpdateFileNameChanged));
    offerAccessoryFile(std::string(60, 'n'), "-8");
    EXPECT_EQ(accessories().RBusUpdateDeviceName, std::string(49, 'n'));
    for (const char* serial : {"", "x12", "2147483648"})
        EXPECT_THROW(offerAccessoryFile("DEV", serial), std::runtime_error) << serial;
    EXPECT_EQ(accessories().RBusUpdateDeviceSerial, -8);
    posted();
    offerHostFile();
    offerHostFile();
    EXPECT_THAT(posted(), ElementsAre(EventId::VarHostUpdateFileNameChanged));
}

TEST_F(QorAppTest, RoutesByWholePathsAndPrefixes) {
    for (const char* path :
         {"", "/", "/device", "/device/", "/device/info/", "/device/update/", "/devices/info", "/lenstables",
          "/lenstables/list/", "/lenstables/fil", "/setup/list", "/focusringsX/file/a"})
        EXPECT_EQ(ask(path), UNKNOWN) << path;
    for (const char* path : {"/lenstables/file", "/focusrings/file/no such", "/setups/file../x"})
        EXPECT_EQ(ask(path), NO_SUCH_FILE) << path;
    EXPECT_EQ(ask("/lenstables/file/x", "HEAD"), UNKNOWN);
    app.handleRequest(nullptr);
    EXPECT_THAT(messages(), Contains("LogMost QorApp: HEAD /lenstables/file/x"));
}

TEST_F(QorAppTest, StoresReturnsAndListsFiles) {
    EXPECT_EQ(ask("/lenstables/list"), "[\r\n]");
    std::string content;
    for (int i = 0; i < 100'000; ++i)
        content += static_cast<char>(i * 7 >> 2);
    for (const std::string& stored : {content, ""s}) {
        EXPECT_EQ(file("PUT", "a \"b\".tab", stored), SUCCESS);
        EXPECT_EQ(file("GET", "a \"b\".tab"), stored);
    }
    EXPECT_EQ(file("POST", "a \"b\".tab"), UNKNOWN);
    std::filesystem::create_symlink("a \"b\".tab", folder_ + "link");
    std::filesystem::create_directory(folder_ + "folder");
    EXPECT_EQ(ask("/lenstables/list"), "[\r\n\"a \"b\".tab\"\r\n]") << "regular files only";
    file("PUT", "/c");
    EXPECT_THAT(ask("/lenstables/list"), testing::ContainsRegex("^.\r\n\"[ac].*\",\r\n\"[ac].*\"\r\n]$"));
}

TEST_F(QorAppTest, RefusesNamesOfOtherThingsThanFiles) {
    ASSERT_EQ(mkfifo((folder_ + "pipe").c_str(), 0600), 0);
    std::filesystem::create_directory(folder_ + "inner");
    for (const std::string& name : {"/inner"s, "/.."s, "/none/x"s, "/" + std::string(5000, 'n'), "/a\0b"s}) {
        EXPECT_EQ(file("GET", name), NO_SUCH_FILE) << name;
        EXPECT_EQ(file("PUT", name, "x"), OPEN_ERROR) << name;
        EXPECT_EQ(file("DELETE", name), NO_SUCH_FILE) << name;
    }
    EXPECT_EQ(file("GET", "/pipe"), NO_SUCH_FILE);
    EXPECT_EQ(file("PUT", "/pipe", "x"), OPEN_ERROR);
    EXPECT_EQ(file("PUT", "/" + std::string(255, 'n'), "x"), SUCCESS);
    EXPECT_EQ(file("PUT", "/" + std::string(256, 'n'), "x"), OPEN_ERROR);
    std::filesystem::create_symlink("/proc/self/mem", folder_ + "unreadable");
    EXPECT_EQ(file("GET", "/unreadable"), "");
    EXPECT_THAT(messages(), Contains("Warn Could not read user file: Input/output error"));
    std::filesystem::remove_all(folder_);
    EXPECT_EQ(ask("/lenstables/list"), "[]");
    EXPECT_EQ(file("PUT", "/a", "x"), SUCCESS) << "creates the folder";
    std::filesystem::remove_all(root + "/var");
    EXPECT_EQ(file("PUT", "/a", "x"), OPEN_ERROR);
    EXPECT_THAT(messages(), Contains("Warn Could not create directory /var//LDA/"));
}

TEST_F(QorAppTest, UploadNeedsAFormWithBothFields) {
    for (const char* type : {"", "text/plain; boundary=b", "multipart/form-data; boundary=\"\""})
        EXPECT_EQ(ask("/device/update", "POST", "", type), R"({"result": "Invalid content type" })") << type;
    static gen::LogLevel level = gen::DebugAll;
    gComponentLogLevel = &level;
    const std::string missing = "'deviceid' and 'file' are mandatory, but at least one is missing.";
    const char* const type = "multipart/form-data; charset=x; boundary=\"b c\"";
    const std::string id = "--b c\nname=deviceid\n\nBOARD-K1-7\r\n--b c";
    EXPECT_EQ(ask("/device/update", "POST", id, type), "{\"result\": \"" + missing + "\" }");
    EXPECT_THAT(posted(), IsEmpty());
    EXPECT_EQ(ask("/device/update", "POST", id + "\nname=file\n\nfirmware\r\n--b c--", type),
              R"({"taskid": "BOARD-K1-7" })");
    EXPECT_TRUE(std::filesystem::exists(root + "/update/host.swu"));
    const std::string noDash = "'deviceid' has to be in the form DEVICE-SERIAL";
    EXPECT_EQ(upload("NODASH", "x"), "{\"result\": \"" + noDash + ".\" }");
    EXPECT_THAT(textThrownBy([&] { upload("DEV-x12", "x"); }),
                testing::EndsWith("'x12' is not a serial number"));
    EXPECT_EQ(upload("A-B-7", "x"), R"({"taskid": "A-B-7" })");
    EXPECT_STREQ(accessories().RBusUpdateDeviceName, "A-B");
    EXPECT_EQ(accessories().RBusUpdateDeviceSerial, 7);
    std::filesystem::remove(root + "/update/host.swu");
    std::filesystem::create_directory(root + "/update/host.swu");
    EXPECT_THAT(textThrownBy([&] { upload("BOARD-K1-7", "x"); }),
                testing::EndsWith("rename: Is a directory"));
    EXPECT_FALSE(std::filesystem::exists(root + "/update/file-from-app"));
    EXPECT_THAT(
        messages(),
        testing::IsSupersetOf(
            {"Warn No multipart/form-data"s, "Warn No boundary"s, "Warn " + missing,
             "Warn " + noDash + ", but it is NODASH.", "DebugAll Request content:"s,
             "DebugAll   \"deviceid\": \"BOARD-K1-7\""s,
             "LogLight Received update file for device ID BOARD-K1-7, our device ID is BOARD-K1-7."s}));
}

TEST_F(QorAppTest, AFailedStoreLeavesTheOldFileAndNothingElse) {
    const std::string old(100, 'o');
    synced.clear();
    file("PUT", "/a", old);
    EXPECT_THAT(std::exchange(synced, {}),
                ElementsAre(folder_ + ".incomplete", "-> /var//LDA//a", root + "/var/LDA"));
    EXPECT_EQ(upload("BOARD-K1-7", "f"), R"({"taskid": "BOARD-K1-7" })");
    EXPECT_THAT(std::exchange(synced, {}),
                ElementsAre(root + "/update/file-from-app", "-> /update/host.swu", root + "/update"));
    std::filesystem::remove(root + "/update/host.swu");
    posted();
    const auto expectOld = [&](const std::string& answer) {
        EXPECT_EQ(answer, WRITE_ERROR);
        EXPECT_EQ(file("GET", "/a"), old);
        EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder_), {}), 1);
    };
    failSync = true;
    expectOld(file("PUT", "/a", "new"));
    EXPECT_EQ(upload("BOARD-K1-7", "f"), WRITE_ERROR);
    failSync = false;
    signal(SIGXFSZ, SIG_IGN);
    rlimit limit{};
    getrlimit(RLIMIT_FSIZE, &limit);
    const rlimit full{4096, limit.rlim_max};
    setrlimit(RLIMIT_FSIZE, &full);
    expectOld(file("PUT", "/a", std::string(5000, 'n')));
    EXPECT_EQ(upload("BOARD-K1-7", std::string(5000, 'f')), WRITE_ERROR);
    setrlimit(RLIMIT_FSIZE, &limit);
    EXPECT_TRUE(std::filesystem::is_empty(root + "/update"));
    EXPECT_THAT(posted(), IsEmpty());
    std::filesystem::create_symlink("a", folder_ + "link");
    EXPECT_EQ(file("PUT", "/link", "new"), SUCCESS);
    EXPECT_EQ(file("GET", "/a"), old) << "the link's target";
    std::ofstream(folder_ + ".incomplete") << "of a process that was killed";
    EXPECT_EQ(ask("/lenstables/list").find("incomplete"), std::string::npos);
    EXPECT_EQ(file("GET", "/.incomplete"), NO_SUCH_FILE);
    EXPECT_EQ(file("PUT", "/.incomplete"), OPEN_ERROR);
}

} // namespace
