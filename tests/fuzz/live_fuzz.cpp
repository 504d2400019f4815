#include "apps/live/server.h"
#include "target.h"
#include "tests/unit/introspection/fixture.h"
#include "tests/unit/service/records.h"

#include <cmath>
#include <fnmatch.h>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>

// A request through the whole process for version 2. Input: lines with the method, the path behind /api/v2/,
// the query, If-Match, If-None-Match, Last-Event-ID and bytes that another process stores, then the body. If
// its first byte is 1: the bytes of a connection.

namespace {

using nlohmann::json;

constexpr auto BRIGHTNESS = gen::EventId::VarDisplayBrightnessChanged;
constexpr std::size_t LONGEST_JSON = 20000; // longer ones only take longer

struct Input {
    std::string method, path, query, ifMatch, ifNoneMatch, lastEventId, stored, body;

    explicit Input(std::string_view text) {
        for (std::string* const line :
             {&method, &path, &query, &ifMatch, &ifNoneMatch, &lastEventId, &stored})
            *line = takeLine(text);
        body = text;
    }

    std::string records() const {
        using records::pair;
        const std::string params = pair("REQUEST_METHOD", method) + pair("QUERY_STRING", query) +
                                   pair("HTTP_IF_MATCH", ifMatch) + pair("HTTP_IF_NONE_MATCH", ifNoneMatch) +
                                   pair("HTTP_LAST_EVENT_ID", lastEventId);
        return records::request("/api/v2/" + path, body, false, 1, params);
    }
};

std::string headOf(const std::string& text) {
    return text.substr(0, text.find("\r\n\r\n"));
}

struct Answer {
    std::string head;
    std::string body;

    explicit Answer(const std::string& text) : head(headOf(text)) {
        body = text.substr(std::min(text.size(), head.size() + 4));
        EXPECT_TRUE(head.starts_with("Status: ")) << text;
    }
    // A header's value.
    std::string header(const std::string& name) const {
        const std::size_t begin = head.find(name + ": ") + name.size() + 2;
        return head.substr(begin, head.find("\r\n", begin) - begin);
    }
    int status() const { return std::stoi(head.substr(8)); }
    json document() const { return json::parse(body); }
};

class Process {
public:
    // The broker ends, then the process does, which closes a stream.
    ~Process() {
        gServerConnection->close();
        EXPECT_EQ(Answer(exchange(Input("GET\nhealth").records())).status(), 503);
        reset("");
        const Input set("PATCH\nvalues\n\n\n\n\n\n{\"DisplayBrightness\":1}");
        EXPECT_EQ(Answer(exchange(set.records())).status(), 500);
        const Descriptor client = connected(Input("GET\nevents").records());
        collect(client);
        server_.stop();
        EXPECT_FALSE(server_.isBusy());
    }

    // What the process answers until it waits for more.
    std::string exchange(std::string_view bytes) {
        Descriptor client = connected(bytes);
        std::string text = collect(client);
        if (headOf(text).find("text/event-stream") != std::string::npos)
            text += watch(client);
        client = Descriptor();
        turn();
        return records::content(text);
    }

    // Copies all memories into `bytes`, whose allocation is kept for the next input.
    void copyTo(std::string& bytes) {
        bytes.clear();
        for (std::uint32_t mem = 0; mem < MEMORY_ARRAY_SIZE; ++mem)
            bytes.append(memories_.base(mem), MEMORY_ARRAY[mem].size);
    }

    // The memories are zero, but another process has stored something.
    void reset(std::string_view stored) {
        for (const MemoryDescriptor& memory : MEMORY_ARRAY)
            std::memset(*memory.basePointer, 0, memory.size);
        for (const Variable& variable : stored_)
            stored.copy(address(variable), variable.row().size);
    }

private:
    Descriptor connected(std::string_view bytes) const {
        Descriptor client(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
        EXPECT_EQ(connect(client.get(), reinterpret_cast<const sockaddr*>(&address_), sizeof address_), 0);
        EXPECT_EQ(send(client.get(), bytes.data(), bytes.size(), 0), std::ssize(bytes));
        return client;
    }

    void turn() {
        while (poll_.wait(0, true) == EventPoll::Dispatched) {
        }
        for (auto posted = events_.take(); !posted.empty(); posted = events_.take())
            for (const Notify& event : posted)
                server_.handleEvent(event);
        server_.turn(now_);
        EXPECT_LE(server_.waitMs(now_), 1000);
    }

    std::string collect(const Descriptor& client) {
        std::string text;
        for (std::size_t before = 1; before > 0;) {
            turn();
            const std::string more = records::received(client.get());
            text += more;
            before = more.size();
        }
        return text;
    }

    // A change, and then nothing for longer than any period.
    std::string watch(const Descriptor& client) {
        ++*brightness_;
        server_.handleEvent({BRIGHTNESS, 0, 0});
        std::string text = collect(client);
        now_ += std::chrono::minutes(2);
        return text + collect(client);
    }

    char* address(const Variable& variable) { return memories_.base(variable.mem) + variable.row().location; }

    EventPoll poll_;
    Memories memories_;
    PostedEvents events_;
    sockaddr_un address_ = records::listenOnStandardInput();
    Server server_{poll_, std::nullopt};
    const Variable stored_[3]{Variable("ProductName"), Variable("LensFileList"), Variable("FocusMotor")};
    char* const brightness_ = address(Variable("DisplayBrightness"));
    Server::Clock::time_point now_ = Server::Clock::now();
};

std::string literalDecoded(const std::string& text) {
    std::string out;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto isDigit = [&](std::size_t at) { return at < text.size() && std::isxdigit(text[at]) != 0; };
        const bool isByte = text[i] == '%' && isDigit(i + 1) && isDigit(i + 2);
        out += isByte           ? static_cast<char>(std::stoi(text.substr(i + 1, 2), nullptr, 16))
               : text[i] == '+' ? ' '
                                : text[i];
        i += isByte ? 2 : 0;
    }
    return out;
}

std::vector<std::string> literalPatterns(const std::string& query) {
    std::vector<std::string> patterns;
    std::istringstream parameters(query);
    for (std::string parameter; std::getline(parameters, parameter, '&');) {
        std::istringstream list(parameter.starts_with("vars=") ? literalDecoded(parameter.substr(5)) : "");
        for (std::string pattern; std::getline(list, pattern, ',');)
            if (!pattern.empty())
                patterns.push_back(pattern);
    }
    return patterns;
}

// The names that the patterns match; nothing if one of them matches none.
std::set<std::string> literalNames(const std::vector<std::string>& patterns) {
    std::set<std::string> names;
    for (const std::string& pattern : patterns) {
        bool isMatched = false;
        for (const VariableId& id : matchingVariables({})) {
            const bool isFull = pattern.find('.') != std::string::npos;
            const std::string name = isFull ? id.name() : id.descriptor().name;
            if (fnmatch(pattern.c_str(), name.c_str(), 0) != 0)
                continue;
            names.insert(id.name());
            isMatched = true;
        }
        if (!isMatched || pattern.size() > Api::MAX_PATTERN || pattern.find('\0') != std::string::npos)
            return {};
    }
    return patterns.size() > Api::MAX_PATTERNS ? std::set<std::string>() : names;
}

void checkNames(const Input& input, const Answer& answer) {
    const std::vector<std::string> patterns = literalPatterns(input.query);
    if (patterns.empty())
        return;
    const std::set<std::string> names = literalNames(patterns);
    EXPECT_EQ(answer.status() == 400, names.empty()) << answer.body;
    if (answer.status() != 200 || answer.body.size() > LONGEST_JSON)
        return;
    const json document = answer.document();
    std::set<std::string> answered;
    for (const auto& [name, value] : document.items())
        answered.insert(name);
    EXPECT_EQ(answered, names);
}

void checkProblem(const Answer& answer) {
    const json problem = answer.document();
    EXPECT_EQ(problem["status"], answer.status());
    EXPECT_TRUE(problem["type"].is_string() && problem["title"].is_string() && problem["detail"].is_string())
        << problem;
}

// The answer of PATCH can be stored again, and changes nothing then.
void checkStored(Process& process, const Input& input, const Answer& answer) {
    const bool hasInvalid = answer.body.find("INVALID_VALUE") != std::string::npos; // members that nobody set
    if (hasInvalid || !input.stored.empty())
        return;
    static std::string before;
    static std::string after;
    process.copyTo(before);
    const Answer again(process.exchange(Input("PATCH\nvalues\n\n\n\n\n\n" + answer.body).records()));
    EXPECT_EQ(again.status(), 200) << again.body;
    EXPECT_EQ(again.document(), answer.document());
    process.copyTo(after);
    EXPECT_TRUE(after == before);
}

// `{"DisplayBrightness":<number>}` is stored if the number is whole and within the bounds.
void checkNumber(const std::string& body, const Answer& answer) {
    constexpr std::string_view BEGIN = "{\"DisplayBrightness\":";
    if (!body.starts_with(BEGIN) || !body.ends_with("}"))
        return;
    const std::string text = body.substr(BEGIN.size(), body.size() - BEGIN.size() - 1);
    if (text.find_first_not_of("0123456789.eE+-") != std::string::npos || !json::accept(text))
        return;
    const double number = std::strtod(text.c_str(), nullptr);
    EXPECT_EQ(answer.status() == 200, number >= 0 && number <= 10 && std::floor(number) == number) << body;
}

// With the present tag or number nothing has changed, and a stream continues.
void checkPresent(Process& process, Input input, const Answer& now) {
    const std::string number = now.header("Event-Sequence");
    input.ifNoneMatch = now.header("ETag");
    EXPECT_EQ(Answer(process.exchange(input.records())).status(), 304);
    input.method = "PATCH";
    input.ifMatch = '"' + number + '"';
    EXPECT_NE(Answer(process.exchange(input.records())).status(), 412);
    input.method = "GET";
    input.path = "events";
    input.lastEventId = number;
    EXPECT_EQ(process.exchange(input.records()).find("event: reset"), std::string::npos);
}

} // namespace

void handle(std::string_view text) {
    static Process process;
    if (text.starts_with('\x01')) {
        process.reset("");
        process.exchange(text);
        return;
    }
    const Input input(text);
    process.reset(input.stored);
    static std::string before;
    static std::string after;
    process.copyTo(before);
    const Answer answer(process.exchange(input.records()));
    if (answer.status() >= 400) {
        process.copyTo(after);
        EXPECT_TRUE(after == before);
        if (input.method != "HEAD")
            checkProblem(answer);
    }
    if (input.path != "values")
        return;
    if (input.method == "GET")
        checkNames(input, answer);
    if (input.method == "HEAD" && answer.status() == 200)
        checkPresent(process, input, answer);
    if (input.method == "PATCH" && answer.status() == 200)
        checkStored(process, input, answer);
    if (input.method == "PATCH" && input.ifMatch.empty())
        checkNumber(input.body, answer);
}
