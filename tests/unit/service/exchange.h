#pragma once

#include "apps/web/service/qorapp.h"
#include "tests/unit/introspection/fixture.h"
#include "tests/unit/service/records.h"

#include <cstdlib>

/// A request on a connection that is kept, with memories and a broker beside it.
struct Exchange {
    Exchange() {
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
        request.emplace(&fcgi, ends[0], 0);
    }
    ~Exchange() { close(ends[1]); }
    Exchange(const Exchange&) = delete;
    Exchange& operator=(const Exchange&) = delete;

    /// The content of the answer's records behind the default header.
    std::string answer() const {
        static const std::string HEADER = "Content-type: application/json\r\n\r\n";
        const std::string text = records::content(records::received(ends[1]));
        EXPECT_TRUE(text.empty() || text.starts_with(HEADER)) << text;
        return text.substr(std::min(HEADER.size(), text.size()));
    }

    Memories memories;
    PostedEvents events;
    EventPoll poll;
    Fcgi fcgi{0, poll};
    int ends[2]{};
    std::optional<Request> request;
};

/// The companion app on a device with a root folder of its own.
struct AppExchange : Exchange {
    AppExchange() {
        for (const char* folder : {"/var/LDA", "/update", "/tmp"})
            std::filesystem::create_directories(root + folder);
        setenv("VIRTUAL_DEVICE_ROOT", root.c_str(), 1);
    }
    ~AppExchange() {
        unsetenv("VIRTUAL_DEVICE_ROOT");
        std::filesystem::remove_all(root);
    }

    std::string ask(const std::string& path, const std::string& method = "GET", std::string_view body = "",
                    const std::string& type = "") {
        request->begin(1, true);
        request->addParam("PATH_INFO", path);
        request->addParam("REQUEST_METHOD", method);
        request->addParam("CONTENT_TYPE", type);
        request->appendPostData(reinterpret_cast<const unsigned char*>(body.data()),
                                static_cast<int>(body.size()));
        app.handleRequest(&*request);
        return answer();
    }

    char pattern[20] = "/tmp/qorapp-XXXXXX";
    const std::string root = mkdtemp(pattern);
    QorApp app{"BOARD", "K1-7"};
};
