#pragma once

#include "apps/live/connection.h"
#include "apps/live/counters.h"
#include "apps/live/streams.h"

#include <string>

class Changes;
class PresentValues;
class Problem;

/// Answers requests by method and path:
///
///     GET   /api/v2/values[?vars=...]   names and values
///     PATCH /api/v2/values              stores values, all or none
///     GET   /api/v2/events?vars=...     a stream of changes
///     GET   /api/v2/catalogue[/<hash>]  what each variable is
///     GET   /api/v2/health              ready, or why not
///     GET   /api/v2/metrics             counters for Prometheus
///
/// Every failure is a Problem. docs/api/live.md describes requests and answers.
class Api {
public:
    /// Patterns of one request, and their length together.
    static constexpr std::size_t MAX_PATTERNS = 256;
    static constexpr std::size_t MAX_PATTERN = 200;

    /// The references must outlive the object.
    Api(PresentValues& values, Changes& changes, Streams& streams, Counters& counters);

    /// Answers, or opens a stream.
    void handle(Connection& connection, const HttpRequest& request);

    /// Answers a request whose body is too large, status 413, or does not fit beside other ones, 503.
    void refuse(Connection& connection, int status);

private:
    void answerProblem(Connection& connection, const Problem& problem);
    void route(Connection& connection, const HttpRequest& request);
    HttpAnswer values(const HttpRequest& request);
    HttpAnswer patch(const HttpRequest& request);
    HttpAnswer catalogue(const HttpRequest& request, const std::string& name) const;
    HttpAnswer metrics(const HttpRequest& request) const;
    void events(Connection& connection, const HttpRequest& request);
    VariableSet wanted(const HttpRequest& request) const;

    PresentValues& values_;
    Changes& changes_;
    Streams& streams_;
    Counters& counters_;
    const std::string catalogue_;
    const std::string catalogueHash_;
};
