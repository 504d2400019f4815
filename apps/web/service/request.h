#pragma once

#include "apps/common/event/eventpoll.h"
#include "apps/web/service/fastcgi/receivebuffer.h"
#include "apps/web/service/fastcgi/textstream.h"

#include <any>
#include <array>
#include <map>
#include <ostream>
#include <string>
#include <string_view>

class Fcgi;

/// One FastCGI connection from the web server and the request that runs on it, in the responder role of
/// FastCGI version 1 (https://fastcgi-archives.github.io/FastCGI_Specification.html), one request at a time.
///
/// A record, all integers big-endian; content and padding follow:
///
///     0         1        2            4                6                7          8
///     +---------+--------+------------+----------------+----------------+----------+
///     | version |  type  | request id | content length | padding length | reserved |
///     +---------+--------+------------+----------------+----------------+----------+
///
/// BEGIN_REQUEST, PARAMS and STDIN are acted upon, other types up to 10 are passed over. When STDIN ends, the
/// listener registers the request and hands it to its callback, which answers at once or later through
/// output() and end().
///
/// The peer's end of file or reset is taken as hang-up: the request leaves the event loop and its descriptor
/// is closed; the object goes when the listener sees fit. An exception while a record is handled ends this
/// request with an Error line that holds its text, and nothing else.
class Request : public EventPoll::Callback {
public:
    enum RecordType : unsigned char {
        BeginRequest = 1,
        EndRequest = 3,
        Params = 4,
        Stdin = 5,
        Stdout = 6,
        Stderr = 7,
        MaxType = 10
    };

    /// Content of a written record at most: the largest multiple of 8 that its length field holds.
    static constexpr unsigned int MAX_CONTENT = 65528;

    /// Owns the descriptor `fd`. `id` is the listener's number for the connection. `fcgi` must outlive the
    /// request.
    Request(Fcgi* fcgi, int fd, unsigned int id);
    ~Request() override;
    Request(const Request&) = delete;
    Request& operator=(const Request&) = delete;

    /// Readable or urgent: receives and reads the records that are whole. Hang-up: leaves the loop and
    /// closes.
    void event(EventType type) override;

    /// Reads and handles one record. Returns false when there is none or its type is unknown (it is dropped
    /// then). Throws "Request is already closed.".
    bool readRecord();

    /// Decodes one length of a PARAMS pair, of one byte or four. Moves `cursor` and `remaining` on. Returns
    /// -1 when the bytes do not suffice.
    static int getLength(const unsigned char*& cursor, int& remaining);

    /// Adds the name-value pairs of one PARAMS content, up to the first that does not fit into it or is all
    /// empty.
    void addParams(const unsigned char* data, int length);
    void addParam(const std::string& name, const std::string& value);
    void appendPostData(const unsigned char* data, int length);

    /// Starts a request: everything of the one before is forgotten.
    void begin(unsigned short requestId, bool keepConnection);

    /// The stream for the response. Puts the default header "Content-type: application/json" in front unless
    /// writeHeader was called, and sends what has gathered beyond 8 KiB.
    std::ostream& output();

    /// Puts header lines and the empty line that ends them in front instead of the default. With null, all
    /// later output is discarded.
    void writeHeader(const char* header);

    /// The stream for STDERR records.
    std::ostream& error() { return error_; }

    /// Send what the streams hold as records; an empty stream sends none. Throw "Request has no Fcgi.".
    void sendOutput();
    void sendError();

    /// Sends output and errors, then END_REQUEST. The request waits for nothing any more. Unless the web
    /// server keeps the connection it is closed, and the request must not be used again: the next cleanup
    /// deletes it. Throws "Request has no Fcgi." and "Request is already closed.".
    void end();

    /// Shuts down and closes the socket. Returns close's result.
    int close();

    /// Writes `data` as records of the type in the header buffer. Nothing is written for length 0. `more`
    /// says that another record follows at once. Returns 0, or -1 when the peer is gone or has taken nothing
    /// for SEND_TIMEOUT_MS; the rest is lost then, and end() closes the connection. Throws "Request is
    /// already closed.".
    int writeRecord(const char* data, unsigned int length, bool more = false);

    static constexpr int SEND_TIMEOUT_MS = 10000;

    /// The value of a parameter, empty if there is none.
    const std::string& param(const std::string& name) const;
    const std::string& postData() const { return postData_; }

    unsigned int id() const { return id_; }
    unsigned int requestId() const { return requestId_; }
    int socket() const { return fd_; }
    bool isClosed() const { return fd_ < 0; }
    /// True from end() or hang-up on, until another request begins on the connection.
    bool isFinished() const { return isClosed() || finished_; }

    /// Whatever the web API keeps with a request that waits: integer 0 for variable updates, 1 for log text.
    std::any context;

private:
    void receive();
    void handleRecord(unsigned char type, std::string_view content);
    void hangUp();
    void fail(const char* reason);
    int sendRecord(const char* content, unsigned int length, unsigned int padding, bool more);
    void sendStream(TextStream& stream, RecordType type);

    Fcgi* fcgi_;
    int fd_;
    unsigned int id_;
    unsigned short requestId_ = 0;
    bool keepConnection_ = true;
    bool headerWritten_ = false;
    bool finished_ = false;
    bool sendFailed_ = false;
    std::map<std::string, std::string> params_;
    std::string postData_;
    TextStream output_;
    TextStream error_;
    std::array<unsigned char, ReceiveBuffer::HEADER_SIZE> header_{
        1}; // last one read, template of those written
    ReceiveBuffer input_;
};
