#pragma once

#include <ostream>
#include <streambuf>

class Request;

/// A stream into a request's output, for an answer that one call writes as a whole, such as a picture. Every
/// piece goes through Request::write, so the answer is sent in records of some 8 KiB while it grows and is
/// never in memory as a whole.
///
/// When the request's connection is closed the stream goes bad and drops further output.
class RequestStream : public std::ostream {
public:
    /// `request` must outlive the stream.
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
