#pragma once

#include <ostream>
#include <streambuf>
#include <string>
#include <string_view>

/// An output stream into a string that grows by what is written, in one step: a large answer that is written
/// at once is copied once.
class TextStream : public std::ostream {
public:
    TextStream() : std::ostream(nullptr) { rdbuf(&buffer_); }

    std::string_view text() const { return buffer_.text; }

    /// Forgets the text.
    void erase() { buffer_.text.clear(); }

    /// Makes the stream as new: empty, good, without memory of its own.
    void reset() {
        std::string().swap(buffer_.text);
        clear();
    }

private:
    struct Buffer : std::streambuf {
        std::streamsize xsputn(const char* data, std::streamsize length) override {
            text.append(data, static_cast<std::size_t>(length));
            return length;
        }
        int_type overflow(int_type character) override {
            text += traits_type::to_char_type(character);
            return traits_type::not_eof(character);
        }

        std::string text;
    };

    Buffer buffer_;
};
