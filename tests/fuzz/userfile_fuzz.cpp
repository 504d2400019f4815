#include "target.h"
#include "tests/unit/service/exchange.h"

// The name of a user file through the companion app's routes: a file that can be stored can be listed, read
// and removed. Input: the path, the content type, then the content.

namespace {

constexpr const char* SUCCESS = R"({"result": "Success" })";
constexpr const char* NO_SUCH_FILE = R"({"result": "No such file" })";

std::string listOf(const std::string& path) {
    return "[\r\n\"" + path.substr(path.rfind('/') + 1) + "\"\r\n]";
}

} // namespace

void handle(std::string_view input) {
    static AppExchange app;
    const std::string path(takeLine(input));
    const std::string type(takeLine(input));
    if (path.find("..") != std::string::npos)
        return; // the web server refuses names that leave the folder
    std::string stored;
    try {
        stored = app.ask(path, "PUT", input, type);
    } catch (const std::runtime_error&) {
        app.request->end(); // of an update
        app.answer();
        app.events.take();
        return;
    }
    app.events.take();
    const std::size_t file = path.find("/file");
    if (file == std::string::npos || path.starts_with("/device"))
        return;
    const std::string kind = path.substr(0, file);
    if (stored == SUCCESS) {
        EXPECT_EQ(app.ask(kind + "/list", "GET", "", type), listOf("/" + path.substr(file + 5)));
        EXPECT_EQ(app.ask(path, "GET", "", type), input);
        EXPECT_EQ(app.ask(path, "DELETE", "", type), SUCCESS);
    }
    const bool isRoute = stored.find("Unknown") == std::string::npos;
    EXPECT_EQ(app.ask(path, "GET", "", type), isRoute ? NO_SUCH_FILE : stored);
}
