#include "apps/live/api.h"

#include "apps/live/catalogue.h"
#include "apps/live/changes.h"
#include "apps/live/hash.h"
#include "apps/live/metrics.h"
#include "apps/live/patch.h"
#include "apps/live/presentvalues.h"
#include "apps/live/problem.h"
#include "apps/live/query.h"

#include <algorithm>
#include <charconv>
#include <exception>
#include <malloc.h>

namespace {

constexpr char BASE[] = "/api/v2/";
constexpr char RETRY_SOON[] = "Retry-After: 1\r\n";
constexpr int MAX_PERIOD_MS = 60000;
constexpr std::size_t LARGE_BODY = 65536;

void requireMethod(const HttpRequest& request, std::initializer_list<const char*> methods) {
    const std::string& method = request.param("REQUEST_METHOD");
    std::string allowed;
    for (const char* const known : methods) {
        if (method == known)
            return;
        allowed += (allowed.empty() ? "" : ", ") + std::string(known);
    }
    throw Problem(405, "The method is not one of " + allowed, {}, "Allow: " + allowed + "\r\n");
}

template <typename Number>
std::optional<Number> numberFrom(std::string_view text) {
    Number number{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && end == text.data() + text.size() ? std::optional(number) : std::nullopt;
}

// Whether the client has this version. A web server that compresses an answer changes its tag "1" to W/"1" or
// "1-gzip".
bool hasTag(const HttpRequest& request, const std::string& tag) {
    const std::string& known = request.param("HTTP_IF_NONE_MATCH");
    return known == "*" || known.find('"' + tag) != std::string::npos;
}

// The sequence number of If-Match: "7443234234", or with more behind a dot, as the tag of values has it. A
// number of another process says nothing about what has changed: 0.
std::optional<std::uint64_t> unchangedSince(const HttpRequest& request, const Changes& changes) {
    const std::string& tag = request.param("HTTP_IF_MATCH");
    if (tag.empty() || tag == "*")
        return std::nullopt;
    const std::size_t begin = tag.find('"') + 1;
    const auto sequence =
        numberFrom<std::uint64_t>(tag.substr(begin, tag.find_first_of(".\"", begin) - begin));
    if (begin == 0 || !sequence)
        throw Problem(400, "If-Match does not hold a sequence number");
    return changes.isKnown(*sequence) ? *sequence : 0;
}

std::chrono::milliseconds periodOf(const HttpRequest& request) {
    const std::string text = queryValue(request.param("QUERY_STRING"), "period");
    const auto period = text.empty() ? 0 : numberFrom<int>(text);
    if (!period || *period < 0 || *period > MAX_PERIOD_MS)
        throw Problem(400, "period is not a number of milliseconds up to " + std::to_string(MAX_PERIOD_MS));
    return std::chrono::milliseconds(*period);
}

void addMatching(VariableSet& numbers, const std::string& pattern) {
    try {
        for (const VariableId& variable : matchingVariables({pattern}))
            numbers.set(PresentValues::numberOf(variable));
    } catch (const Refusal& refusal) {
        throw Problem(400, refusal.what(), refusalJson(pattern, refusal, nullptr));
    }
}

HttpAnswer health() {
    if (!hasBroker())
        throw Problem(503, "The message broker is not connected");
    if (mappedMemories() < MEMORY_ARRAY_SIZE)
        throw Problem(503, "Not all memories are mapped");
    return {200, "application/json", "Cache-Control: no-store\r\n", R"({"status":"ready"})"};
}

} // namespace

Api::Api(PresentValues& values, Changes& changes, Streams& streams, Counters& counters)
    : values_(values),
      changes_(changes),
      streams_(streams),
      counters_(counters),
      catalogue_(catalogueDocument()),
      catalogueHash_(hexDigits(hashOf(catalogue_))) {}

void Api::handle(Connection& connection, const HttpRequest& request) {
    ++counters_.requests;
    try {
        route(connection, request);
    } catch (const Problem& problem) {
        answerProblem(connection, problem);
    }
    // The JSON of a body takes ten times its size, in pieces that keep the heap from shrinking.
    if (request.body.size() > LARGE_BODY)
        malloc_trim(0);
}

void Api::answerProblem(Connection& connection, const Problem& problem) {
    ++counters_.refused;
    connection.answer(problem.answer());
}

void Api::refuse(Connection& connection, int status) {
    ++counters_.requests;
    if (status == 413)
        answerProblem(connection, Problem(413, "The body has more than " +
                                                   std::to_string(Connection::MAX_BODY) + " bytes"));
    else
        answerProblem(connection, Problem(503, "The bodies of other requests are under way", {}, RETRY_SOON));
}

void Api::route(Connection& connection, const HttpRequest& request) {
    const std::string& path = request.param("SCRIPT_NAME");
    const std::string name = path.starts_with(BASE) ? path.substr(sizeof BASE - 1) : "";
    const bool isOfProcess = name == "health" || name == "metrics";
    if (Output::held() > Output::LIMIT && !isOfProcess)
        throw Problem(503, "Clients have not taken their answers yet", {}, RETRY_SOON);
    if (name == "events") {
        requireMethod(request, {"GET"});
        return events(connection, request);
    }
    if (name == "values") {
        requireMethod(request, {"GET", "HEAD", "PATCH"});
        const bool isChange = request.param("REQUEST_METHOD") == "PATCH";
        return connection.answer(isChange ? patch(request) : values(request));
    }
    const bool isCatalogue = name == "catalogue" || name == "catalogue/" + catalogueHash_;
    if (!isCatalogue && !isOfProcess)
        throw Problem(404, "There is nothing at this path");
    requireMethod(request, {"GET", "HEAD"});
    if (isCatalogue)
        return connection.answer(catalogue(request, name));
    if (name == "health")
        return connection.answer(health());
    connection.answer(metrics(request));
}

VariableSet Api::wanted(const HttpRequest& request) const {
    const std::vector<std::string> patterns = queryList(request.param("QUERY_STRING"), "vars");
    const auto isWrong = [](const std::string& pattern) {
        return pattern.size() > MAX_PATTERN || pattern.find('\0') != std::string::npos;
    };
    if (patterns.size() > MAX_PATTERNS || std::any_of(patterns.begin(), patterns.end(), isWrong))
        throw Problem(400, "vars has more or longer patterns than allowed, or one with a zero character");
    if (patterns.empty())
        return values_.all();
    VariableSet numbers;
    for (const std::string& pattern : patterns)
        addMatching(numbers, pattern);
    return numbers;
}

HttpAnswer Api::values(const HttpRequest& request) {
    const VariableSet variables = wanted(request);
    const std::string tag =
        std::to_string(changes_.newest(variables)) + "." + hexDigits(values_.refresh(variables));
    const std::string headers = "ETag: \"" + tag + "\"\r\nCache-Control: no-cache\r\nEvent-Sequence: " +
                                std::to_string(changes_.last()) + "\r\n";
    if (hasTag(request, tag))
        return {304, {}, headers};
    return {200, "application/json", headers, values_.document(variables)};
}

HttpAnswer Api::patch(const HttpRequest& request) {
    Patch patch(values_, changes_, [this](VariableNumber number) { streams_.changed(number); });
    Patch::Stored stored = patch.apply(request.body, unchangedSince(request, changes_));
    counters_.stored += stored.count;
    return {200, "application/json",
            "ETag: \"" + std::to_string(changes_.newest(stored.variables)) +
                "\"\r\nCache-Control: no-store\r\n",
            std::move(stored.document)};
}

HttpAnswer Api::catalogue(const HttpRequest& request, const std::string& name) const {
    const bool isNamed = name != "catalogue";
    const std::string headers = "ETag: \"" + catalogueHash_ + "\"\r\nCache-Control: " +
                                (isNamed ? "public, max-age=31536000, immutable" : "no-cache") +
                                "\r\nContent-Location: " + BASE + "catalogue/" + catalogueHash_ + "\r\n";
    if (hasTag(request, catalogueHash_))
        return {304, {}, headers};
    return {200, "application/json", headers, catalogue_};
}

HttpAnswer Api::metrics(const HttpRequest& request) const {
    const MetricsFormat format = metricsFormat(request.param("HTTP_ACCEPT"));
    return {200, mediaType(format), "Cache-Control: no-store\r\n",
            metricsText(format, counters_, streams_.size())};
}

// The sequence number comes from the header of a client that connects again, or from the first request.
void Api::events(Connection& connection, const HttpRequest& request) {
    Streams::Wish wish{wanted(request), periodOf(request)};
    std::string since = request.param("HTTP_LAST_EVENT_ID");
    if (since.empty())
        since = queryValue(request.param("QUERY_STRING"), "since");
    const auto sequence = numberFrom<std::uint64_t>(since);
    if (sequence && changes_.isKnown(*sequence))
        wish.since = sequence;
    wish.wantsReset = !since.empty() && !wish.since;
    if (streams_.isFull())
        throw Problem(503, "As many clients as allowed get events already", {}, "Retry-After: 10\r\n");
    streams_.open(connection, wish);
}
