#pragma once

#include <ostream>
#include <streambuf>

class Request;

/// A stream into a request's output for an answer that one call writes whole, such as a picture. The output
/// that Request::output returns sends what has gathered only when it is asked for again: here it is asked for
/// each piece, so the answer leaves in records of some 8 KiB while it grows, and is never in memory whole.
///
/// When the request's connection is closed the stream goes bad and drops what follows.
class RequestStream : public std::ostream {
public:
    /// Puts the default header in front unless one was written, as Request::output does. `request` must
    /// outlive the stream.
    explicit RequestStream(Request& request);

private:
    class Buffer : public std::streambuf {
    public:
        explicit Buffer(Request& request) : request_(request) {}

    private:
        std::streamsize xsputn(const char* data, std::streamsize length) override;
        int_type overflow(int_type character) override;

        Request& request_;
    };

    Buffer buffer_;
};
