#pragma once

#include <semaphore.h>
#include <string>

/// The named semaphore whose existence means that the broker is ready. Its count of one lets clients connect
/// one after another.
class ReadySemaphore {
public:
    /// Creates the semaphore with count 1 and replaces that of a former broker. Throws
    /// std::runtime_error with "sem_open" and the reason.
    explicit ReadySemaphore(const std::string& name);
    /// Removes the name; the semaphore lives on in clients that have it open.
    ~ReadySemaphore();
    ReadySemaphore(const ReadySemaphore&) = delete;
    ReadySemaphore& operator=(const ReadySemaphore&) = delete;

private:
    std::string name_;
    sem_t* semaphore_;
};
