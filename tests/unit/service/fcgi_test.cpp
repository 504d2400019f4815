#include "apps/web/service/fcgi.h"

#include "apps/common/diagnostics/diagnostics.h"
#include "apps/web/service/fastcgi/sendall.h"
#include "records.h"
#include "tests/unit/diagnostics/logcapture.h"

#include <algorithm>
#include <csignal>
#include <gmock/gmock.h>
#include <malloc.h>
#include <sys/resource.h>
#include <thread>

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

TEST_F(FcgiTest, StopAnswersAcceptedConnectionsAndNoOthers) {
    const std::string kept = request("/x", "body", true);
    const int waiting = send(request("/wait"));
    const int idle = send(kept);
    const int again = send(kept);
    const int begun = send(kept.substr(0, 20));
    const int silent = send("");
    received(idle);
    received(again);
    ASSERT_EQ(::send(again, kept.data(), kept.size(), 0), std::ssize(kept)); // not seen by the loop
    fcgi_.stopAccepting();
    fcgi_.cleanup();
    const int late = send(kept);
    send(begun, kept.substr(20));
    EXPECT_TRUE(fcgi_.isBusy());
    send(silent, kept);
    EXPECT_FALSE(fcgi_.isBusy());
    for (const int client : {again, begun, silent})
        EXPECT_EQ(received(client), END_RECORD);
    for (const int client : {idle, again, begun, silent})
        EXPECT_TRUE(isClosed(client));
    for (const int client : {waiting, late})
        EXPECT_TRUE(received(client).empty() && !isClosed(client));
}

TEST_F(FcgiTest, ConnectionThatCannotBeServedIsClosed) {
    const LogCapture log;
    const int client = connectedClient();
    poll_.close();
    fcgi_.event(Fcgi::Readable);
    EXPECT_TRUE(isClosed(client));
    EXPECT_THAT(log.messages(), testing::Contains(testing::StartsWith("Error Connection closed: ")));
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
    const int kept = send(request("/x", "", true));
    EXPECT_EQ(received(kept), END_RECORD);
    send(kept, request("/wait").substr(0, 20)); // uses no place until it is complete
    for (int i = 0; i < 31; ++i)
        send(request("/wait"));
    EXPECT_EQ(received(send(request("/x"))), END_RECORD);
    send(request("/wait"));
    const std::ptrdiff_t before = openDescriptors();
    const int extra = send(request("/x")); // its unread bytes do not wake the loop
    EXPECT_EQ(received(extra), "");
    EXPECT_EQ(openDescriptors(), before + 2) << "both ends";
    drop(extra);
    EXPECT_EQ(openDescriptors(), before);
    drop(clients_.back());
    EXPECT_EQ(received(send(request("/x"))), END_RECORD);
}

TEST_F(FcgiTest, RejectsWithoutADescriptorThenPausesAndLogsOnce) {
    const LogCapture log;
    LOG_MESSAGE(Warn, "opens the log");
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    const rlimit full{static_cast<rlim_t>(openDescriptors()) + 5, limit.rlim_max};
    const rlimit none{0, limit.rlim_max};
    const int rejected = connectedClient();
    setrlimit(RLIMIT_NOFILE, &full);
    std::list<int> filling;
    while (filling.empty() || filling.back() >= 0)
        filling.push_back(dup(rejected));
    turn();
    setrlimit(RLIMIT_NOFILE, &limit);
    for (const int fd : filling)
        close(fd);
    EXPECT_TRUE(isClosed(rejected)) << "by the listener";
    const int waiting = connectedClient();
    setrlimit(RLIMIT_NOFILE, &none);
    for (int i = 0; i < 3; ++i) {
        turn();
        fcgi_.cleanup();
    }
    setrlimit(RLIMIT_NOFILE, &limit);
    std::vector<std::string> lines = log.messages();
    std::erase_if(lines, [](const std::string& line) { return !line.starts_with("Warn Out of"); });
    EXPECT_THAT(lines, testing::ElementsAre("Warn Out of descriptors, connection rejected",
                                            "Warn Out of descriptors, no connections accepted for now"));
    fcgi_.cleanup();
    send(waiting, request("/x"));
    EXPECT_EQ(received(waiting), END_RECORD);
}

std::string announced(const char* size, const std::string& body) {
    return request("/x", body, false, 1, pair("CONTENT_LENGTH", size));
}

TEST_F(FcgiTest, LargeBodiesTakeTurnsWhileSmallOnesPass) {
    const LogCapture log;
    const std::string whole = announced("60000000", "body");
    const auto start = BodyBudget::Clock::now();
    const int first = send(whole.substr(0, whole.size() - 8));
    const int second = send(whole);
    const int third = send(whole);
    EXPECT_EQ(received(send(announced("4", "body"))), END_RECORD);
    EXPECT_EQ(received(send(announced("100663297", ""))), END_RECORD) << "refused";
    fcgi_.cleanupAt(start);
    EXPECT_EQ(received(second) + received(third), "");
    drop(second); // gives its place up while it waits
    fcgi_.cleanupAt(start + std::chrono::hours(1));
    EXPECT_TRUE(isClosed(first));
    fcgi_.cleanup();
    EXPECT_EQ(received(third), END_RECORD);
    EXPECT_THAT(log.messages(),
                testing::IsSupersetOf({"Warn Request 0: Body has stalled", "Error Body is too large"}));
}

TEST_F(FcgiTest, UnfinishedRequestsLeaveNoMemory) {
    const auto used = [&](int rounds) {
        for (int i = 0; i < rounds; ++i) {
            drop(send(announced("5", "1234").substr(0, 60)));
            drop(send(announced("100663297", std::string(30000, 'b')))); // fails with its body unread
            fcgi_.cleanup();
        }
        return mallinfo2().uordblks;
    };
    const std::size_t before = used(10);
    EXPECT_LT(used(1000), before + 50000);
    std::array<int, 50> open{};
    for (int& client : open)
        client = send("");
    const std::size_t accepted = mallinfo2().uordblks;
    for (const int client : open)
        send(client, announced("100663297", std::string(30000, 'b')));
    EXPECT_LT(mallinfo2().uordblks, accepted + 1000000) << "before the next connection";
}

TEST(BodyBudget, GrantsInOrderAndNoticesStalledBodies) {
    constexpr std::size_t MB = 1000000;
    std::array<char, 5> places{}; // their addresses stand for requests, which are used as keys only
    std::array<Request*, 5> requests{};
    std::transform(places.begin(), places.end(), requests.begin(),
                   [](char& place) { return reinterpret_cast<Request*>(&place); });
    const auto [a, b, c, d, e] = requests;
    BodyBudget budget;
    BodyBudget::Clock::time_point now{};
    EXPECT_TRUE(budget.ask(a, 70 * MB, now));
    EXPECT_FALSE(budget.ask(b, 50 * MB, now));
    EXPECT_FALSE(budget.ask(c, 2 * MB, now)) << "fits, but came later";
    EXPECT_TRUE(budget.ask(d, MB, now)) << "small";
    EXPECT_FALSE(budget.grow(d, 40 * MB, now)) << "longer than announced";
    EXPECT_TRUE(budget.grow(e, 20 * MB, now)) << "not announced";
    now += std::chrono::seconds(9);
    EXPECT_TRUE(budget.grow(a, BodyBudget::MIN_PROGRESS, now));
    budget.finish(d);
    now += std::chrono::seconds(9);
    EXPECT_THAT(budget.stalled(now), testing::ElementsAre(e));
    EXPECT_THAT(budget.admit(now), testing::ElementsAre());
    budget.release(a);
    EXPECT_THAT(budget.admit(now), testing::ElementsAre(b, c));
}

TEST(SendAll, StopsWhenItsPatienceOrTheProcessEnds) {
    EventPoll poll;
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
    const std::string text(1 << 24, 'x');
    const auto send = [&](std::chrono::nanoseconds patience) {
        return sendAll(ends[0], std::array<std::string_view, 1>{text}, false, patience);
    };
    std::jthread slow([&] { // takes something all the time
        for (char bytes[4096]; recv(ends[1], bytes, sizeof(bytes), 0) > 0;)
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
    });
    EXPECT_LT(send(std::chrono::milliseconds(200)), text.size());
    EXPECT_EXIT((raise(SIGTERM), std::exit(send(std::chrono::hours(1)) < text.size() ? 0 : 1)),
                testing::ExitedWithCode(0), "");
    shutdown(ends[0], SHUT_RDWR);
    slow.join();
    close(ends[0]);
    close(ends[1]);
}

} // namespace
