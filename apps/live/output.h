#pragma once

#include <cstddef>
#include <memory>
#include <string>

/// Bytes on their way to one or several connections, which share them. The class counts the bytes that are
/// not sent to all yet.
class Output {
public:
    explicit Output(std::string bytes) : bytes_(std::move(bytes)) { held_ += bytes_.capacity(); }
    ~Output() { held_ -= bytes_.capacity(); }
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;

    const std::string& bytes() const { return bytes_; }

    /// The bytes that all outputs of the process hold.
    static std::size_t held() { return held_; }

    /// Above this, nothing new is printed until clients have taken what they have.
    static constexpr std::size_t LIMIT = std::size_t{8} << 20;

private:
    static inline std::size_t held_ = 0;
    const std::string bytes_;
};

using SharedOutput = std::shared_ptr<const Output>;
