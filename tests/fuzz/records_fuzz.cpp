#include "apps/common/diagnostics/diagnostics.h"
#include "gen/code/introspection_gen.h"
#include "target.h"
#include "tests/unit/service/handlerfixture.h"

#include <poll.h>
#include <sys/resource.h>
#include <sys/stat.h>

// The bytes of connections through the whole service. Input: a byte that holds the size of the pieces in
// which the bytes arrive, 0 for one piece; then the bytes of each connection. NEXT and a Kind come before
// each further one.

namespace {

constexpr std::string_view NEXT = "\xff\xff\xff\xff";
constexpr std::size_t MAX_PIECES = 16;
constexpr std::size_t MANY = 34; // more than the service serves at a time

enum Kind : std::uint8_t {
    WithoutDescriptors, // the service has none left
    WithoutReserve,     // and its reserve is taken
    Repeated,           // many connections send the same bytes
};

gen::LogLevel levelAtEnd = gen::Warn;

class Service : public RequestHandlerTest {
public:
    Service() {
        const std::string dmesg = screen_.path("/dmesg");
        std::ofstream(dmesg) << "#!/bin/sh\nprintf 'one\\033[31mtwo\\033[0m\\n'; read -r line <$0.end\n";
        chmod(dmesg.c_str(), 0700);
        mkfifo((dmesg + ".end").c_str(), 0600);
        dmesgsEnd_ = Descriptor(open((dmesg + ".end").c_str(), O_RDWR | O_CLOEXEC));
        setenv("PATH", screen_.path("").c_str(), 1);
        turn();
        handler_.emplace(poll_, fcgi_);
        poll_.wait(60000, true); // for its line
        fcgi_.callback = this;
        logWriter().setDevice("/dev/null"); // the fixture keeps the lines
        reset();
    }

    ~Service() override {
        gComponentLogLevel = &levelAtEnd;
        send("", 0);
        fcgi_.stopAccepting();
        drop(clients_.front());
        EXPECT_FALSE(fcgi_.isBusy());
    }

    void serve(std::string_view input) {
        const std::size_t size = takeNumber<std::uint8_t>(input);
        send(take(input, input.find(NEXT)), size);
        while (!input.empty()) {
            take(input, NEXT.size());
            const std::uint8_t kind = takeNumber<std::uint8_t>(input);
            connect(kind, take(input, input.find(NEXT)), size);
        }
        run();
        fcgi_.cleanupAt(BodyBudget::Clock::now() + std::chrono::hours(1)); // bodies have stalled
        for (int count = 0; !clients_.empty(); ++count) {
            const int client = count == 1 ? clients_.back() : clients_.front();
            records::received(client);
            drop(client);
            if (count < 2 || clients_.empty())
                run();
        }
        EXPECT_TRUE(fcgi_.requests().empty() && !fcgi_.isBusy());
        reset();
    }

    void readAnswers() {
        for (const int client : clients_)
            records::received(client);
    }

    // The web server takes each answer, hangs up on some long ones, and refuses names that leave their
    // folder.
    void handleRequest(Request* request) override {
        records::received(clients_.back());
        if (request->param("SCRIPT_NAME") == "/api/v1/all.cgi" && request->requestId() % 2 == 1)
            for (const int client : clients_)
                shutdown(client, SHUT_RD);
        events_.take();
        if (request->param("PATH_INFO").find("..") == std::string::npos)
            handler_->handleRequest(request);
        else
            request->end();
    }

private:
    void TestBody() override {}

    void connect(std::uint8_t kind, std::string_view bytes, std::size_t size) {
        if (kind == WithoutDescriptors)
            return connectWithout(static_cast<rlim_t>(Descriptor(dup(STDERR_FILENO)).get()) + 1);
        if (kind == WithoutReserve)
            return connectWithout(0);
        send(bytes, size);
        while (kind == Repeated && clients_.size() < MANY)
            send(bytes, 0);
    }

    // With the descriptors below `limit` only.
    void connectWithout(rlim_t limit) {
        rlimit before{};
        getrlimit(RLIMIT_NOFILE, &before);
        const rlimit none{limit, before.rlim_max};
        connectedClient();
        setrlimit(RLIMIT_NOFILE, &none);
        turn();
        setrlimit(RLIMIT_NOFILE, &before);
        run(); // the listener goes on
        turn();
    }

    void send(std::string_view input, std::size_t size) {
        const int client = connectedClient();
        do {
            const std::string_view piece =
                take(input, size == 0 ? input.size() : std::max(size, input.size() / MAX_PIECES));
            ::send(client, piece.data(), piece.size(), MSG_NOSIGNAL);
            turn();
        } while (!input.empty());
    }

    // The memories are zero, but the log's level is Warn.
    void reset() {
        for (const MemoryDescriptor& memory : MEMORY_ARRAY)
            std::memset(*memory.basePointer, 0, memory.size);
        gComponentLogLevel = reinterpret_cast<gen::LogLevel*>(gMemApp); // as the service's start does
        *gComponentLogLevel = gen::Warn;
    }

    PostedEvents events_;
    Descriptor dmesgsEnd_; // dmesg ends when it is closed
};

} // namespace

static Service& service() {
    static Service theOnly;
    return theOnly;
}

// In place of the C library's: the web server reads as soon as the service waits for it.
extern "C" int poll(pollfd* states, nfds_t count, int /*timeout*/) {
    const timespec none{};
    service().readAnswers();
    return ppoll(states, count, &none, nullptr);
}

void handle(std::string_view input) {
    service().serve(input);
}
