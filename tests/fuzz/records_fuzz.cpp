#include "target.h"
#include "tests/unit/service/handlerfixture.h"

// The bytes of a connection through the whole service. Input: a byte that holds the size of the pieces in
// which the bytes arrive, 0 for one piece; then the bytes.

namespace {

constexpr std::size_t MAX_PIECES = 16;

class Service : public RequestHandlerTest {
public:
    Service() { fcgi_.callback = this; }

    void serve(std::string_view input) {
        const std::size_t size = takeNumber<std::uint8_t>(input);
        client_ = connectedClient();
        while (!input.empty()) {
            const std::string_view piece =
                take(input, size == 0 ? input.size() : std::max(size, input.size() / MAX_PIECES));
            ::send(client_, piece.data(), piece.size(), MSG_NOSIGNAL);
            turn();
        }
        run();
        records::received(client_);
        drop(client_);
        run();
        EXPECT_TRUE(fcgi_.requests().empty());
        for (const MemoryDescriptor& memory : MEMORY_ARRAY)
            std::memset(*memory.basePointer, 0, memory.size);
    }

    // The web server takes each answer, hangs up on the long one, and refuses names that leave their folder.
    void handleRequest(Request* request) override {
        records::received(client_);
        events_.take();
        if (request->param("SCRIPT_NAME") == "/api/v1/all.cgi")
            shutdown(client_, SHUT_RD);
        if (request->param("PATH_INFO").find("..") == std::string::npos)
            handler_->handleRequest(request);
        else
            request->end();
    }

private:
    void TestBody() override {}

    PostedEvents events_;
    int client_ = -1;
};

} // namespace

void handle(std::string_view input) {
    static Service service;
    service.serve(input);
}
