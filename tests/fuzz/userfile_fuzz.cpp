#include "apps/web/service/qorapp.h"
#include "exchange.h"
#include "target.h"

// The name of a user file through the companion app's routes: a file that can be stored can be listed, read
// and removed. Input: the path, the content type, then the content.

namespace {

constexpr const char* SUCCESS = R"({"result": "Success" })";
constexpr const char* NO_SUCH_FILE = R"({"result": "No such file" })";

// A root folder of its own.
struct App : Exchange {
    App() {
        std::filesystem::create_directories(root + "/var");
        std::filesystem::create_directories(root + "/update");
        setenv("VIRTUAL_DEVICE_ROOT", root.c_str(), 1);
    }
    ~App() { std::filesystem::remove_all(root); }

    std::string ask(const std::string& path, const std::string& method, const std::string& type,
                    std::string_view body) {
        request->begin(1, true);
        request->addParam("PATH_INFO", path);
        request->addParam("REQUEST_METHOD", method);
        request->addParam("CONTENT_TYPE", type);
        request->appendPostData(reinterpret_cast<const unsigned char*>(body.data()),
                                static_cast<int>(body.size()));
        app.handleRequest(&*request);
        return answer();
    }

    char name[20] = "/tmp/files-XXXXXX";
    const std::string root = mkdtemp(name);
    QorApp app{"BOARD", "K1-7"};
};

std::string listOf(const std::string& path) {
    return "[\r\n\"" + path.substr(path.rfind('/') + 1) + "\"\r\n]";
}

} // namespace

void handle(std::string_view input) {
    static App app;
    const std::string path(takeLine(input));
    const std::string type(takeLine(input));
    if (path.find("..") != std::string::npos)
        return; // the web server refuses names that leave the folder
    std::string stored;
    try {
        stored = app.ask(path, "PUT", type, input);
    } catch (const std::runtime_error&) {
        app.request->end(); // of an update
        app.answer();
        return;
    }
    const std::size_t file = path.find("/file");
    if (file == std::string::npos || path.starts_with("/device"))
        return;
    const std::string kind = path.substr(0, file);
    if (stored == SUCCESS) {
        EXPECT_EQ(app.ask(kind + "/list", "GET", type, ""), listOf("/" + path.substr(file + 5)));
        EXPECT_EQ(app.ask(path, "GET", type, ""), input);
        EXPECT_EQ(app.ask(path, "DELETE", type, ""), SUCCESS);
    }
    const bool isRoute = stored.find("Unknown") == std::string::npos;
    EXPECT_EQ(app.ask(path, "GET", type, ""), isRoute ? NO_SUCH_FILE : stored);
}
