#pragma once

#include "apps/variables/recording/format.h"

#include <chrono>
#include <cstdio>
#include <memory>
#include <optional>
#include <vector>

namespace recording {

/// One line of a recording's description.
struct Recorded {
    std::string description;
    std::uint32_t size;
    std::optional<VariableId> variable; ///< the one of this catalogue with the same description
    std::string value;                  ///< of such a variable, as of the last entry read
};

struct Entry {
    std::chrono::microseconds time{0};
    std::size_t number = 0; ///< of the variable
    Notify event{};         ///< with the id of this catalogue, 0 without the variable
};

/// Reads a recording (format.h) from any source: nothing in it is trusted.
class Reader {
public:
    /// Opens the file and reads the description. Throws std::runtime_error "<path>: <reason>" if that cannot
    /// be read, or is not that of a recording with this version.
    explicit Reader(const std::string& path);

    const std::vector<Recorded>& variables() const { return variables_; }

    /// Whether the recording was made with this catalogue.
    bool isOfThisCatalogue() const { return isOfThisCatalogue_; }

    /// Reads an entry and updates the value of its variable. Returns false at the end, which is before the
    /// first frame that is truncated or damaged.
    bool next(Entry& entry);

    /// Goes back to the start values, with all values zero.
    void rewind();

    /// After next has returned false: whether the end is that of a truncated file, as of a process that was
    /// killed.
    bool isTruncated() const { return isTruncated_; }
    /// And whether there is a frame that cannot have been written so.
    bool isDamaged() const { return isDamaged_; }

private:
    struct Close {
        void operator()(std::FILE* file) const { std::fclose(file); }
    };

    bool readFrame();
    bool readFrameLength(std::uint64_t& length);
    bool takeEntry(Entry& entry);
    bool takeNumber(std::uint64_t limit, std::uint64_t& number);
    bool takeVariable(bool& hasArguments);
    bool takeBytes(Recorded& recorded);
    void readDescription();
    void addVariable(const std::string& line, const std::map<std::string, VariableId>& known);
    [[noreturn]] void fail(const std::string& reason) const;

    std::string path_;
    std::unique_ptr<std::FILE, Close> file_;
    std::vector<Recorded> variables_;
    bool isOfThisCatalogue_ = false;
    bool isTruncated_ = false;
    bool isDamaged_ = false;
    long start_ = 0; // place of the start values in the file
    std::string frame_;
    std::size_t taken_ = 0; // of the frame's bytes
    std::uint64_t time_ = 0;
    std::size_t number_ = 0;
};

} // namespace recording
