#pragma once

#include "apps/common/values/refusal.h"
#include "apps/live/connection.h"

#include <nlohmann/json_fwd.hpp>

#include <stdexcept>
#include <string>

/// A request cannot be answered as it is: its answer is application/problem+json (RFC 9457).
class Problem : public std::runtime_error {
public:
    /// `headers` are further lines of the answer. `errors` are JSON objects with commas
    /// between them, or empty.
    Problem(int status, const std::string& detail, std::string errors = {}, std::string headers = {})
        : std::runtime_error(detail),
          status_(status),
          errors_(std::move(errors)),
          headers_(std::move(headers)) {}

    HttpAnswer answer() const;

private:
    int status_;
    std::string errors_;
    std::string headers_;
};

/// One refused name or value: {variable, code, given, min, max, entries, message}. `min` and `max` are those
/// of the number, for a text or a buffer the number of bytes; members without a meaning are left out. A long
/// given value is truncated.
std::string refusalJson(const std::string& name, const Refusal& refusal, const nlohmann::json* given);

/// The text of a document, with characters that are not UTF-8 replaced.
std::string documentText(const nlohmann::json& document);
