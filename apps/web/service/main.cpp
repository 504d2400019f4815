#include "apps/common/event/servicemanager.h"
#include "apps/web/service/fcgi.h"
#include "apps/web/service/requesthandler.h"
#include "gen/code/gen.h"
#include "gen/code/memories.h"

#include <chrono>
#include <cstdio>
#include <cstring>
#include <malloc.h>
#include <unistd.h>

void processPreInit() {}
void processPostInit() {}

namespace {

constexpr int PORT = 9000;
constexpr int TURN_MS = 100;
constexpr std::chrono::seconds DRAIN_TIME{5};
// Ends the reading of a queue that fills as fast as it is read.
constexpr int QUEUE_TURNS = 1000;

// Returns the memory of large bodies to the system as soon as it is freed, instead of keeping it in the heap.
void returnLargeBlocks() {
    mallopt(M_MMAP_THRESHOLD, 1 << 20);
    mallopt(M_TRIM_THRESHOLD, 1 << 20);
}

// Reads the requests in the inherited queue. They may have waited while no service received changes, so the
// next answer has all variables; a request that is read after that answer would miss it.
void readQueue(EventPoll& poll, RequestHandler& handler) {
    for (int turn = 0; turn < QUEUE_TURNS && poll.wait(0, false) == EventPoll::Dispatched; ++turn) {
    }
    handler.markAllChanged();
}

// Answers the accepted requests after SIGTERM, at most for DRAIN_TIME. New connections wait in systemd's
// socket.
void drain(EventPoll& poll, Fcgi& fcgi, RequestHandler& handler) {
    const auto end = RequestHandler::Clock::now() + DRAIN_TIME;
    for (fcgi.stopAccepting(); fcgi.isBusy() && RequestHandler::Clock::now() < end; handler.periodic())
        poll.wait(TURN_MS, true);
}

int run() {
    gen::init();
    EventPoll& poll = gen::getEventPoll();
    const bool isInherited = Listener::isListening(STDIN_FILENO); // systemd's
    Fcgi fcgi = isInherited ? Fcgi(poll) : Fcgi(PORT, poll);
    RequestHandler handler(poll, fcgi);
    fcgi.callback = &handler;
    gen::getServerConnection()->handler = &handler;
    ServiceManager manager;
    manager.reportReady();
    if (isInherited)
        readQueue(poll, handler);
    // A lost broker connection is never renewed: systemd restarts the service.
    while (poll.wait(TURN_MS, false) != EventPoll::Terminate) {
        handler.periodic();
        if (gen::getServerConnection()->isOpen())
            manager.feedWatchdog();
        else
            manager.askForRestart();
    }
    drain(poll, fcgi, handler);
    gen::closeServerConnection();
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    if (argc == 2 && std::strcmp(argv[1], "--version") == 0) {
        std::puts("webservice " VERSION "\ncatalogue " CATALOGUE_HASH);
        return 0;
    }
    returnLargeBlocks();
    try {
        return run();
    } catch (...) {
        throw; // caught so that the stack unwinds and listener and handler are destroyed
    }
}
