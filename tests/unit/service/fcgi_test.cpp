#include "apps/web/service/fcgi.h"

#include "apps/web/service/request.h"
#include "records.h"

#include <dirent.h>
#include <gtest/gtest.h>
#include <list>
#include <netinet/in.h>
#include <sys/resource.h>

namespace {

using namespace records;

int connectTo(int port) {
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<in_port_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    EXPECT_EQ(connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
    return fd;
}

/// A port that nobody listens on: bound once, asked for its number and let go.
int freePort() {
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    socklen_t size = sizeof(address);
    bind(fd, reinterpret_cast<const sockaddr*>(&address), size);
    getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size);
    close(fd);
    return ntohs(address.sin_port);
}

std::size_t openDescriptors() {
    std::size_t count = 0;
    DIR* folder = opendir("/proc/self/fd");
    while (readdir(folder) != nullptr)
        ++count;
    closedir(folder);
    return count;
}

/// A listener over TCP: requests for "/wait" stay open, others are answered at once.
class FcgiTest : public testing::Test, public Fcgi::RequestCallback {
protected:
    FcgiTest() : port_(freePort()), fcgi_(std::make_unique<Fcgi>(port_, poll_)) { fcgi_->callback = this; }
    ~FcgiTest() override {
        for (const int client : clients_)
            close(client);
    }

    void handleRequest(Request* request) override {
        if (request->param("SCRIPT_NAME") != "/wait")
            request->end();
    }

    int send(const std::string& bytes) {
        const int client = clients_.emplace_back(connectTo(port_));
        EXPECT_EQ(::send(client, bytes.data(), bytes.size(), MSG_NOSIGNAL),
                  static_cast<ssize_t>(bytes.size()));
        turn();
        return client;
    }

    void drop(int client) {
        close(client);
        clients_.remove(client);
        turn();
    }

    void turn() {
        while (poll_.wait(0, true) == EventPoll::DISPATCHED) {
        }
    }

    EventPoll poll_;
    int port_;
    std::unique_ptr<Fcgi> fcgi_;
    std::list<int> clients_;
};

TEST_F(FcgiTest, RegistersACompleteRequestUntilTheNextCleanup) {
    send(request("/wait").substr(0, 20));
    EXPECT_EQ(fcgi_->request(0), nullptr);
    const int client = send(request("/x"));
    EXPECT_EQ(received(client), END_RECORD);
    ASSERT_NE(fcgi_->request(1), nullptr);
    EXPECT_TRUE(fcgi_->request(1)->isFinished());
    fcgi_->cleanup();
    EXPECT_EQ(fcgi_->request(1), nullptr);
}

TEST_F(FcgiTest, FinishedRequestsTakeNoPlace) {
    for (int i = 0; i < 100; ++i) {
        const int client = send(request("/x", "", i % 2 == 0)); // kept connections among them
        ASSERT_EQ(received(client), END_RECORD) << i;
    }
}

TEST_F(FcgiTest, TheConnectionBeyondThirtyTwoIsLeftAloneAndCostsNothingOnceItsClientHasGone) {
    for (int i = 0; i < 32; ++i)
        send(request("/wait"));
    const std::size_t before = openDescriptors();
    const int extra = send(request("/x"));
    EXPECT_EQ(received(extra), "");
    EXPECT_EQ(poll_.wait(0, true), EventPoll::TIMEOUT) << "its unread bytes must not wake the loop";
    drop(extra);
    EXPECT_EQ(openDescriptors(), before);

    drop(clients_.front());
    EXPECT_EQ(received(send(request("/x"))), END_RECORD) << "a place has become free";
}

TEST_F(FcgiTest, VanishingClientsLeaveNoDescriptorBehind) {
    const std::size_t before = openDescriptors();
    const std::string whole = request("/wait");
    for (std::size_t i = 0; i < 300; ++i)
        drop(send(whole.substr(0, 1 + i % whole.size())));
    fcgi_->cleanup();
    EXPECT_EQ(openDescriptors(), before);
    EXPECT_EQ(received(send(request("/x"))), END_RECORD);
}

TEST_F(FcgiTest, OutOfDescriptorsTurnsConnectionsAwayAndGoesOn) {
    const int client = clients_.emplace_back(connectTo(port_));
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    const rlimit full{openDescriptors() + 5, limit.rlim_max};
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
    EXPECT_EQ(received(send(request("/x"))), END_RECORD);
}

TEST_F(FcgiTest, EndsWhatIsOpenWhenItGoes) {
    const int waiting = send(request("/wait"));
    const int finished = send(request("/x"));
    const int kept = send(request("/x", "", true));
    fcgi_.reset();
    EXPECT_EQ(received(waiting), END_RECORD);
    EXPECT_EQ(received(finished), END_RECORD);
    EXPECT_EQ(received(kept), END_RECORD) << "an answered one is not ended again";
}

} // namespace
