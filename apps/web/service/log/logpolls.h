#pragma once

#include <map>
#include <string>

class Request;

/// The requests for the log text. The query "offset=<bytes>" asks for the text from there on. The request
/// waits when the text ends there. Without an offset, with 0, or with one beyond the end it asks for all of
/// it.
class LogPolls {
public:
    /// `text` only grows and must outlive the object.
    explicit LogPolls(const std::string& text) : text_(text) {}

    /// Writes the header and the text's present length, then answers or lets the request wait. The length is
    /// not updated while the request waits: the client adds the length of the text that it receives. Throws
    /// as appendOutput.
    void open(Request& request);

    /// Sends the text that the request asks for and ends it, or leaves it waiting.
    /// Throws std::invalid_argument or std::out_of_range when the offset is not a number or is negative.
    void appendOutput(Request& request);

    /// Calls appendOutput for every waiting request among `open`. A failure is logged at Error and the
    /// request keeps waiting.
    void answer(const std::map<unsigned int, Request*>& open);

private:
    const std::string& text_;
};
