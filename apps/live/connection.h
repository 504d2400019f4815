#pragma once

#include "apps/common/event/eventpoll.h"
#include "apps/common/fastcgi/receivebuffer.h"
#include "apps/common/files/descriptor.h"
#include "apps/live/output.h"

#include <cstdint>
#include <map>
#include <string>
#include <string_view>

/// What the web server has sent for one request.
struct HttpRequest {
    std::map<std::string, std::string, std::less<>> params; ///< CGI's names: REQUEST_METHOD, HTTP_...
    std::string body;

    /// Empty if it is missing.
    const std::string& param(std::string_view name) const;
};

/// A whole answer.
struct HttpAnswer {
    int status = 200;
    std::string type = "application/json";
    std::string headers{}; ///< further lines, each with its line end
    std::string body{};
};

/// The reason phrase of a status.
const char* reasonPhrase(int status);

/// One connection from the web server: receives requests, one at a time, and sends without ever blocking.
/// Output that the socket does not take leaves when the socket becomes writable.
///
/// The object registers its descriptor once, edge-triggered for input and output; each event receives and
/// sends all that is possible.
class Connection : public EventPoll::Callback {
public:
    class Owner {
    public:
        virtual ~Owner() = default;
        /// A request is complete. The owner answers at once, or begins a stream. An exception closes the
        /// connection.
        virtual void handle(Connection& connection, const HttpRequest& request) = 0;
        /// The request's body is larger than MAX_BODY, status 413, or does not fit beside other ones, 503.
        /// The owner answers; the connection closes itself after the answer.
        virtual void refuse(Connection& connection, int status) = 0;
        /// All output has left, and more can be sent.
        virtual void ready(Connection& connection) = 0;
        /// The connection has closed itself. The owner deletes it after this turn of the loop.
        virtual void closed(Connection& connection) = 0;
        /// Accounts for the memory of bodies, `bytes` more or less. Returns false, without accounting, if
        /// they do not fit.
        virtual bool accountBody(std::ptrdiff_t bytes) = 0;
    };

    /// Largest body of a request. A larger one gets status 413.
    static constexpr std::size_t MAX_BODY = std::size_t{1} << 20;

    /// Registers the descriptor with `poll`. Both references must outlive the object. Throws what
    /// EventPoll::add throws.
    Connection(EventPoll& poll, Descriptor socket, Owner& owner);
    ~Connection() override;
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    void event(EventType type) override;

    /// Sends the answer and ends the request. HEAD gets no body.
    void answer(const HttpAnswer& answer);

    /// Begins an answer whose body follows in pieces, without end.
    void beginStream(const std::string& head);

    /// Sends a piece of a stream, framed by frame(). REQUIRES: isReady().
    void send(SharedOutput output);

    /// The text as records of this connection's request.
    std::string frame(std::string_view text) const;

    /// Whether everything has been sent.
    bool isReady() const { return output_ == nullptr && socket_.isOpen(); }
    bool isStream() const { return isStream_; }
    /// Whether no request is under way.
    bool isIdle() const { return !isStream_ && !isReceiving_ && output_ == nullptr; }
    unsigned short requestId() const { return requestId_; }

    /// Closes the socket and tells the owner. Does nothing when closed.
    void close();

private:
    void receive();
    void takeRecord();
    void begin(unsigned short requestId, bool keep);
    void addParams(std::string_view content);
    void addBody(std::string_view content);
    void complete();
    void refuse(int status);
    void freeBody();
    void sendMore();

    EventPoll& poll_;
    Owner& owner_;
    Descriptor socket_;
    ReceiveBuffer input_;
    HttpRequest request_;
    std::size_t paramsSize_ = 0;
    SharedOutput output_;
    std::size_t sent_ = 0; // of output_
    unsigned short requestId_ = 0;
    bool isReceiving_ = false;
    bool isHead_ = false;
    bool keep_ = false;
    bool isStream_ = false;
    bool closeWhenSent_ = false;
};
