#include "apps/common/diagnostics/diagnostics.h"
#include "apps/common/files/descriptor.h"
#include "apps/common/files/standarddescriptors.h"
#include "device/broker/broker.h"
#include "device/broker/readysemaphore.h"

#include <csignal>
#include <sys/signalfd.h>

namespace {

// Blocks SIGINT and SIGTERM and returns a descriptor that becomes readable when one of them arrives.
Descriptor openStopDescriptor() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    sigprocmask(SIG_BLOCK, &signals, nullptr);
    Descriptor fd(signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK));
    if (!fd.isOpen())
        throwErrorNumber(__FILE__, __LINE__, "signalfd");
    return fd;
}

} // namespace

int main() {
    openStandardDescriptors();
    const Descriptor stop = openStopDescriptor();
    Broker broker("/var/volatile/message-broker.socket");
    const ReadySemaphore semaphore("/message-broker-ready");
    LOG_MESSAGE(LogLight, "Message broker is ready");
    while (broker.runOnce(-1, stop.get())) {
    }
    return 0;
}
