// The reference of bench/throughput.py: answers FastCGI requests with prepared buffers through the reference
// FastCGI library. It does none of the work that a service needs to compute its answers.

#include <fcgiapp.h>

#include <cstdio>
#include <exception>
#include <fstream>
#include <iterator>
#include <map>
#include <stdexcept>
#include <string>

namespace {

constexpr const char* USAGE = "usage: readyresponder PORT SCRIPT_NAME=FILE...\n"
                              "FILE holds the whole answer: header lines, an empty line, body";
constexpr int BACKLOG = 10;

using Answers = std::map<std::string, std::string>;

Answers readAnswers(char** arguments) {
    Answers answers;
    for (; *arguments != nullptr; ++arguments) {
        const std::string argument = *arguments;
        const std::size_t separator = argument.find('=');
        std::ifstream file(argument.substr(separator + 1), std::ios::binary);
        if (separator == std::string::npos || !file)
            throw std::runtime_error(USAGE);
        answers[argument.substr(0, separator)] = {std::istreambuf_iterator<char>(file), {}};
    }
    return answers;
}

void answer(FCGX_Request& request, const Answers& answers) {
    // Like the service, reads the whole request before it answers.
    char bytes[8192];
    while (FCGX_GetStr(bytes, sizeof bytes, request.in) > 0) {
    }
    const char* script = FCGX_GetParam("SCRIPT_NAME", request.envp);
    const auto found = answers.find(script == nullptr ? "" : script);
    if (found == answers.end())
        FCGX_PutS("Status: 404 Not Found\r\n\r\n", request.out);
    else
        FCGX_PutStr(found->second.data(), static_cast<int>(found->second.size()), request.out);
}

void serve(const std::string& port, const Answers& answers) {
    const int listening = FCGX_Init() == 0 ? FCGX_OpenSocket((":" + port).c_str(), BACKLOG) : -1;
    FCGX_Request request;
    if (listening < 0 || FCGX_InitRequest(&request, listening, 0) != 0)
        throw std::runtime_error("cannot listen on port " + port);
    while (FCGX_Accept_r(&request) == 0) // ends the previous request
        answer(request, answers);
    throw std::runtime_error("cannot accept");
}

} // namespace

int main(int argc, char** argv) {
    try {
        if (argc < 3)
            throw std::runtime_error(USAGE);
        serve(argv[1], readAnswers(argv + 2));
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 1;
    }
}
