#include "apps/variables/recording/backgroundfile.h"

#include <cerrno>
#include <csignal>
#include <utility>

namespace recording {

bool BackgroundFile::open(const std::string& path) {
    if (!file_.open(path))
        return false;
    sigset_t all;
    sigset_t former;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &former);
    thread_ = std::thread(&BackgroundFile::run, this);
    pthread_sigmask(SIG_SETMASK, &former, nullptr);
    return true;
}

BackgroundFile::~BackgroundFile() {
    finish();
}

bool BackgroundFile::write(std::string_view bytes) {
    const std::lock_guard lock(mutex_);
    pending_ += bytes;
    hasWork_.notify_one();
    errno = error_;
    return error_ == 0;
}

bool BackgroundFile::sync() {
    finish();
    errno = error_;
    return error_ == 0 && file_.sync();
}

void BackgroundFile::finish() {
    {
        const std::lock_guard lock(mutex_);
        isLast_ = true;
        hasWork_.notify_one();
    }
    if (thread_.joinable())
        thread_.join();
}

void BackgroundFile::run() {
    std::unique_lock lock(mutex_);
    while (error_ == 0) {
        hasWork_.wait(lock, [this] { return !pending_.empty() || isLast_; });
        if (pending_.empty())
            return;
        const std::string bytes = std::exchange(pending_, {});
        lock.unlock();
        const int error = file_.write(bytes) ? 0 : errno;
        lock.lock();
        error_ = error;
    }
}

} // namespace recording
