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
#include <unistd.h>

void processPreInit() {}
void processPostInit() {}

namespace {

constexpr int PORT = 9001;
constexpr std::chrono::seconds DRAIN_TIME{5};
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

int run(int port) {
    gen::init();
    EventPoll& poll = gen::getEventPoll();
    const bool isInherited = Listener::isListening(STDIN_FILENO);
    Server server(poll, isInherited ? std::nullopt : std::optional(port));
    ServerConnection& broker = *gen::getServerConnection();
    broker.handler = &server;
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
    mallopt(M_MMAP_THRESHOLD,
            1 << 20); // the memory of large bodies goes back to the system, that of answers stays
    mallopt(M_TRIM_THRESHOLD, 1 << 20);
    raiseDescriptorLimit();
    try {
        return run(port);
    } catch (...) {
        throw; // caught so that the stack unwinds
    }
}
