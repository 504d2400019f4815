#include "device/broker/readysemaphore.h"

#include "apps/common/diagnostics/diagnostics.h"

#include <fcntl.h>

ReadySemaphore::ReadySemaphore(const std::string& name) : name_(name) {
    constexpr mode_t EVERYBODY = 0666;
    constexpr unsigned int ONE_AT_A_TIME = 1;
    sem_unlink(name.c_str());
    semaphore_ = sem_open(name.c_str(), O_CREAT | O_EXCL, EVERYBODY, ONE_AT_A_TIME);
    if (semaphore_ == SEM_FAILED)
        throwErrorNumber(__FILE__, __LINE__, "sem_open");
}

ReadySemaphore::~ReadySemaphore() {
    sem_unlink(name_.c_str());
    sem_close(semaphore_);
}
