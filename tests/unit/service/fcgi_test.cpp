#include "apps/web/service/fcgi.h"

#include "apps/common/diagnostics/diagnostics.h"
#include "records.h"
#include "tests/unit/diagnostics/logcapture.h"

#include <gmock/gmock.h>
#include <sys/resource.h>

namespace {

using namespace records;

class FcgiTest : public ListenerTest {};

TEST_F(FcgiTest, DisconnectedAndAnsweredClientsLeaveNothing) {
    const std::ptrdiff_t before = openDescriptors();
    const std::string whole = request("/wait", "body");
    for (std::size_t size = 0; size <= whole.size(); ++size)
        drop(send(whole.substr(0, size)));
    for (int i = 0; i < 100; ++i) {
        const int client = send(request("/x", "", i % 2 == 0)); // kept connections among them
        ASSERT_EQ(received(client), END_RECORD) << i;
    }
    while (!clients_.empty())
        drop(clients_.front());
    fcgi_.cleanup();
    EXPECT_EQ(openDescriptors(), before);
    EXPECT_TRUE(fcgi_.requests().empty());
}

TEST_F(FcgiTest, CleanupDeletesRequestsThatOthersRegistered) {
    const LogCapture log;
    auto* const request = new Request(&fcgi_, connectedClient(), 7);
    fcgi_.addRequest(request);
    for (int i = 0; i < 2; ++i) {
        poll_.add(request->socket(), request, 0);
        fcgi_.removeRequest(request);
    }
    fcgi_.cleanup(); // the leak check sees a request that stays
    EXPECT_EQ(fcgi_.request(7), nullptr);
    EXPECT_THAT(log.messages(),
                testing::Contains("Warn Request 7 no longer a valid request, though marked for deletion."));
}

TEST_F(FcgiTest, ConnectionBeyond32WaitsUntilItsClientDisconnects) {
    for (int i = 0; i < 32; ++i)
        send(request("/wait"));
    const std::ptrdiff_t before = openDescriptors();
    const int extra = send(request("/x")); // its unread bytes do not wake the loop
    EXPECT_EQ(received(extra), "");
    EXPECT_EQ(openDescriptors(), before + 2) << "both ends";
    drop(extra);
    EXPECT_EQ(openDescriptors(), before);
    drop(clients_.front());
    EXPECT_EQ(received(send(request("/x"))), END_RECORD);
}

TEST_F(FcgiTest, RejectsConnectionsWithoutADescriptor) {
    const LogCapture log;
    LOG_MESSAGE(Warn, "opens the log");
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    const rlimit full{static_cast<rlim_t>(openDescriptors()) + 5, limit.rlim_max};
    const int client = connectedClient();
    setrlimit(RLIMIT_NOFILE, &full);
    std::list<int> filling;
    while (filling.empty() || filling.back() >= 0)
        filling.push_back(dup(client));
    turn();
    setrlimit(RLIMIT_NOFILE, &limit);
    for (const int fd : filling)
        close(fd);
    char byte;
    EXPECT_EQ(recv(client, &byte, 1, MSG_DONTWAIT), 0) << "closed by the listener";
    EXPECT_THAT(log.messages(), testing::Contains("Warn Out of descriptors, connection rejected"));
    EXPECT_EQ(received(send(request("/x"))), END_RECORD);
}

} // namespace
