#include "apps/web/service/variables/resultanswer.h"

#include "apps/web/service/request.h"

void answerSuccess(Request& request) {
    request.output() << R"({"result": 1 })";
    request.end();
}

void answerError(Request& request, const std::string& text) {
    request.output() << R"({"result": 0, "error": ")" << escapeForJson(text) << R"(" })";
    request.end();
}

std::string escapeForJson(const std::string& text) {
    std::string encoded;
    for (const char c : text) {
        switch (c) {
        case '\\':
            encoded += "\\u005c";
            break;
        case '"':
            encoded += "\\u0022";
            break;
        case '\r':
            encoded += "\\u000d";
            break;
        case '\n':
            encoded += "\\u000a";
            break;
        case '\t':
            encoded += "\\u0009";
            break;
        default:
            encoded += c;
        }
    }
    return encoded;
}
