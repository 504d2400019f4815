#pragma once

#include "apps/common/values/checkedset.h"
#include "apps/common/values/refusal.h"

#include <nlohmann/json.hpp>

#include <string>

/// "NAME=VALUE" of the command line.
struct Assignment {
    std::string name;
    nlohmann::json value;

    /// Throws Refusal.
    static Assignment parse(const std::string& text) {
        const std::size_t equals = text.find('=');
        if (equals == std::string::npos)
            throw Refusal(Refusal::Reason::WrongType, text + " is not of the form NAME=VALUE");
        const std::string name = text.substr(0, equals);
        return {name, valueFromText(Reference::parse(name), text.substr(equals + 1))};
    }
};
