#pragma once

#include "tests/unit/introspection/fixture.h"
#include "tests/unit/service/records.h"

/// A request on a connection that is kept, with memories and a broker beside it.
struct Exchange {
    Exchange() {
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
        request.emplace(&fcgi, ends[0], 0);
    }
    ~Exchange() { close(ends[1]); }
    Exchange(const Exchange&) = delete;
    Exchange& operator=(const Exchange&) = delete;

    /// The content of the answer's records behind the default header. Empties the broker's socket.
    std::string answer() {
        static const std::string HEADER = "Content-type: application/json\r\n\r\n";
        const std::string text = records::content(records::received(ends[1]));
        events.take();
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
