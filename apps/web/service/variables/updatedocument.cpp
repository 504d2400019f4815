#include "apps/web/service/variables/updatedocument.h"

void UpdateDocument::beginVariable(unsigned int mem, const std::string& memory, const std::string& variable) {
    if (memory_ == mem) {
        variables_ += ", ";
    } else {
        if (memory_)
            variables_ += "\r\n  }, ";
        variables_ += "\r\n  \"" + memory + "\" : {";
        memory_ = mem;
    }
    variables_ += "\r\n    \"" + variable + "\" : ";
}

void UpdateDocument::addError(std::uint32_t eventId, const std::string& reason) {
    if (!errors_.empty())
        errors_ += ",";
    errors_ += "\"Backend error for variable with index " + std::to_string(eventId) + ": " + reason + "\"\n";
}

std::string UpdateDocument::text() const {
    return "\"errors\": [" + errors_ + "],\r\n" + "\"variables\": {" + variables_ + "\r\n  }\r\n}\r\n}\r\n";
}
