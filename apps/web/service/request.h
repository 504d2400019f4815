#pragma once

#include "apps/common/event/eventpoll.h"
#include "apps/common/fastcgi/receivebuffer.h"
#include "apps/common/fastcgi/records.h"
#include "apps/common/files/descriptor.h"
#include "apps/web/service/fastcgi/requestregistry.h"

#include <any>
#include <array>
#include <chrono>
#include <map>
#include <sstream>
#include <string>
#include <string_view>

class RecordBatch;

/// One FastCGI connection from the web server and the request that runs on it, in the responder role of
/// FastCGI version 1, one request at a time. fastcgi/records.h describes the records.
///
/// BEGIN_REQUEST, PARAMS and STDIN are handled, other types up to 10 are ignored. When STDIN ends, the
/// listener registers the request and dispatches it to its callback, which answers at once or later through
/// output() and end().
///
/// End of file and connection reset count as hang-up: the request leaves the event loop and its descriptor is
/// closed; the listener deletes the object. An exception while a record is handled ends this request with an
/// Error line that holds its text, and no other.
///
/// A body is read when the listener grants its memory. A body that is too large for that is an exception:
/// "Body is too large". Without a listener a body has no limit.
class Request : public EventPoll::Callback {
public:
    using RecordType = fastcgi::RecordType;
    using enum fastcgi::RecordType;

    /// The time that sending one answer may block in total, waiting for the web server to take it.
    static constexpr std::chrono::seconds SEND_TIMEOUT{5};

    static constexpr unsigned int MAX_CONTENT = fastcgi::MAX_CONTENT;

    /// Takes ownership of the descriptor `fd`. `id` is the listener's number for the connection. `fcgi`, an
    /// Fcgi or null, must outlive the request.
    Request(RequestRegistry* fcgi, int fd, int id);
    ~Request() override;
    Request(const Request&) = delete;
    Request& operator=(const Request&) = delete;

    /// Readable or urgent: receives and handles the records that are complete. Hang-up: leaves the loop and
    /// closes.
    void event(EventType type) override;

    /// Receives and handles one record. Returns false when no complete record has arrived, and for a record
    /// of unknown type, which is dropped. Throws "Request is already closed.".
    bool readRecord();

    /// Decodes one length of a PARAMS pair, of one byte or four. Moves `cursor` and `remaining` on. Returns
    /// -1 when there are too few bytes.
    static int getLength(unsigned char*& cursor, int& remaining);

    /// Adds the name-value pairs of one PARAMS content, up to the first that does not fit into it or is all
    /// empty.
    void addParams(const unsigned char* data, int length);
    void addParam(const std::string& name, const std::string& value);
    void appendPostData(const unsigned char* data, int length);

    /// Starts a request: parameters, body, output and context of the previous one are cleared.
    void begin(unsigned short requestId, bool keepConnection);

    /// The stream for the response. Puts the default header "Content-type: application/json" in front unless
    /// writeHeader was called, and sends the stream's content when that is longer than 8 KiB.
    std::stringstream& output();

    /// Writes to output(), but sends a long text without copying it into the stream.
    void write(std::string_view text);

    /// Writes header lines and the empty line that ends them, in place of the default header. With null, all
    /// later output is discarded.
    void writeHeader(const char* header);

    /// The stream for STDERR records.
    std::stringstream& error() { return error_; }

    /// Send the content of the streams as records; an empty stream sends none. Throw "Request has no Fcgi."
    /// and "Request is already closed."; sendError only when there is something to send.
    void sendOutput();
    void sendError();

    /// Frees the body's memory. For requests that wait.
    void freeBody();

    /// Reads on: the listener has granted the body's memory.
    void resume();

    /// Logs the reason at Warn and closes the connection.
    void drop(const char* reason);

    /// Sends output and errors, then END_REQUEST. The request waits for nothing any more. Unless the web
    /// server and the listener keep the connection it is closed, and the request must not be used again: the
    /// next cleanup deletes it. Throws "Request has no Fcgi." and "Request is already closed.".
    void end();

    /// Shuts down and closes the socket. Returns close's result: 0, or -1 when it is closed already.
    int close();

    /// Writes `data` as records of the type in the header buffer. Length 0 writes nothing. Returns 0, or -1
    /// when the peer is gone or SEND_TIMEOUT is over; the rest is lost then, and end() closes
    /// the connection. Throws "Request is already closed.".
    int writeRecord(const char* data, unsigned int length);

    /// The value of a parameter, empty if it is missing.
    const std::string& param(const std::string& name) const;
    const std::string& postData() const { return postData_; }

    unsigned int id() const { return id_; }
    unsigned int requestId() const { return requestId_; }
    int socket() const { return socket_.get(); }
    bool isClosed() const { return !socket_.isOpen(); }
    /// True from end() or hang-up on, until another request begins on the connection.
    bool isFinished() const { return isClosed() || finished_; }
    /// True from the beginning of a request on until its input is complete.
    bool isReceiving() const { return isReceiving_; }

    /// Set while a request waits: integer 0 for variable updates, 1 for log text.
    std::any context;

    /// True when the connection is kept after an answer and nothing of another request has arrived.
    bool isIdle() const { return !isClosed() && finished_ && input_.isEmpty(); }

    /// True when `context` holds this integer.
    bool waitsFor(int tag) const;

private:
    void receive();
    void checkPeer();
    void askForBody();
    void growBody(std::size_t more);
    bool takeRecord();
    void handleRecord(unsigned char type, std::string_view content);
    void hangUp();
    void fail(const char* reason);
    void freeInput();
    void sendStream(RecordType type, std::stringstream& stream, std::string_view text = {});
    int sendRecords(const RecordBatch& records, bool more);
    void requireRegistry() const;

    RequestRegistry* fcgi_;
    Descriptor socket_;
    unsigned int id_;
    unsigned short requestId_ = 0;
    bool keepConnection_ = true;
    bool headerWritten_ = false;
    bool finished_ = false;
    bool isReceiving_ = false;
    bool sendFailed_ = false;
    bool isPaused_ = false;  // until the listener grants the body's memory
    bool holdsBody_ = false; // in the listener's budget
    std::chrono::nanoseconds patience_ = SEND_TIMEOUT;
    std::map<std::string, std::string> params_;
    std::string postData_;
    std::stringstream output_;
    std::stringstream error_;
    std::array<unsigned char, ReceiveBuffer::HEADER_SIZE> header_{1}; // last one read, template for writing
    ReceiveBuffer input_;
};
