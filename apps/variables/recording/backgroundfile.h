#pragma once

#include "apps/common/files/outputfile.h"

#include <condition_variable>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>

namespace recording {

/// A file that a thread of its own writes: a disk that stalls for a moment does not let the recorder read
/// values late. The thread gets no signals. Failures are those of earlier writes, with the reason in errno.
class BackgroundFile {
public:
    /// Starts the thread. Returns false as OutputFile::open.
    bool open(const std::string& path);

    /// Ends the thread when all is written.
    ~BackgroundFile();

    /// Keeps the bytes for the thread. Returns false if an earlier write has failed.
    bool write(std::string_view bytes);

    /// Returns when all bytes are on the disk. Returns false if a write has failed. REQUIRES: no later write.
    bool sync();

private:
    void run();
    void finish();

    OutputFile file_;
    std::thread thread_;
    std::mutex mutex_; // of what follows
    std::condition_variable hasWork_;
    std::string pending_;
    bool isLast_ = false;
    int error_ = 0;
};

} // namespace recording
