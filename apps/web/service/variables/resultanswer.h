#pragma once

#include <string>

class Request;

/// Answers {"result": 1 } and ends the request.
void answerSuccess(Request& request);

/// Answers {"result": 0, "error": "<text>" }, with the text escaped, and ends the request.
void answerError(Request& request, const std::string& text);

/// Escapes backslash, double quote, CR, LF and TAB as \uXXXX for a JSON string; other bytes are copied.
std::string escapeForJson(const std::string& text);
