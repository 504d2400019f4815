#include "apps/common/diagnostics/diagnostics.h"
#include "apps/common/event/servicemanager.h"
#include "apps/live/server.h"
#include "gen/code/gen.h"
#include "gen/code/memories.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <malloc.h>
#include <sys/resource.h>
#include <thread>
#include <unistd.h>

void processPreInit() {}
void processPostInit() {}

namespace {

constexpr int PORT = 9001;
constexpr std::chrono::seconds DRAIN_TIME{5};
constexpr std::chrono::seconds SUBSCRIPTION_TIME{2};
constexpr rlim_t DESCRIPTORS = 4096;

constexpr char USAGE[] = "Usage: webservice-live [--port PORT] | --version";

// Each client has a descriptor; the usual limit is 1024.
void raiseDescriptorLimit() {
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) < 0)
        return;
    limit.rlim_cur = std::max(limit.rlim_cur, std::min(limit.rlim_max, DESCRIPTORS));
    setrlimit(RLIMIT_NOFILE, &limit);
}

// Answers the accepted requests after SIGTERM.
void drain(EventPoll& poll, Server& server) {
    const auto end = Server::Clock::now() + DRAIN_TIME;
    for (server.stop(); server.isBusy() && Server::Clock::now() < end; server.turn(Server::Clock::now()))
        poll.wait(server.waitMs(Server::Clock::now()), true);
}

// Changes are pushed from when the broker has read the subscription: a value that a client gets before could
// stay its last one. A broker that does not read does not keep clients from the values.
void awaitSubscription(const ServerConnection& broker) {
    const auto end = Server::Clock::now() + SUBSCRIPTION_TIME;
    while (!broker.isRead() && Server::Clock::now() < end && !EventPoll::shouldTerminate())
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    if (!broker.isRead())
        LOG_MESSAGE(Error, "The broker does not read. Changes may be missing until it does.");
}

int run(int port) {
    gen::init();
    EventPoll& poll = gen::getEventPoll();
    const bool isInherited = Listener::isListening(STDIN_FILENO);
    Server server(poll, isInherited ? std::nullopt : std::optional(port));
    ServerConnection& broker = *gen::getServerConnection();
    broker.handler = &server;
    awaitSubscription(broker);
    ServiceManager manager;
    manager.reportReady();
    while (broker.isOpen() && poll.wait(server.waitMs(Server::Clock::now()), false) != EventPoll::Terminate) {
        server.turn(Server::Clock::now());
        manager.feedWatchdog();
    }
    const bool isLost = !broker.isOpen();
    if (isLost)
        LOG_MESSAGE(Error, "The broker connection is lost. The process ends.");
    else
        drain(poll, server);
    broker.handler = nullptr;
    gen::closeServerConnection();
    return isLost ? EXIT_FAILURE : EXIT_SUCCESS;
}

} // namespace

int main(int argc, char** argv) {
    if (argc == 2 && std::strcmp(argv[1], "--version") == 0) {
        std::puts("webservice-live " VERSION "\ncatalogue " CATALOGUE_HASH);
        return EXIT_SUCCESS;
    }
    const bool hasPort = argc == 3 && std::strcmp(argv[1], "--port") == 0;
    const int port = hasPort ? std::atoi(argv[2]) : PORT;
    if ((argc != 1 && !hasPort) || port < 1 || port > 65535) {
        std::fprintf(stderr, "%s\n", USAGE);
        return 2;
    }
    // The memory of large bodies goes back to the system, that of answers stays.
    mallopt(M_MMAP_THRESHOLD, 1 << 20);
    mallopt(M_TRIM_THRESHOLD, 1 << 20);
    raiseDescriptorLimit();
    try {
        return run(port);
    } catch (...) {
        throw; // caught so that the stack unwinds
    }
}
