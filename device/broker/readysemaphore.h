#pragma once

#include <semaphore.h>
#include <string>

/// The named semaphore that says "the broker is ready". Its count of one lets clients connect one after
/// another.
class ReadySemaphore {
public:
    /// Creates the semaphore with count 1, in the place of one that a former broker has left. Throws
    /// std::runtime_error with "sem_open" and the reason.
    explicit ReadySemaphore(const std::string& name);
    /// Removes the name; clients that have it open keep theirs.
    ~ReadySemaphore();
    ReadySemaphore(const ReadySemaphore&) = delete;
    ReadySemaphore& operator=(const ReadySemaphore&) = delete;

private:
    std::string name_;
    sem_t* semaphore_;
};
