#include "device/simulation/variable.h"

#include "apps/common/diagnostics/diagnostics.h"
#include "apps/common/introspection/introspection.h"

#include <cstdio>
#include <cstring>
#include <tuple>

namespace {

std::pair<std::uint32_t, std::uint32_t> find(const std::string& name) {
    for (std::uint32_t mem = 0; mem < Introspection::getMemCount(); ++mem) {
        for (std::uint32_t var = 0; var < Introspection::getVarCount(mem); ++var)
            if (name == Introspection::getVarName(mem, var))
                return {mem, var};
    }
    throwError(__FILE__, __LINE__, "Unknown variable %s", name.c_str());
}

} // namespace

Variable::Variable(const std::string& name) {
    std::tie(mem_, var_) = find(name);
    row_ = &Introspection::getVarDescriptor(mem_, var_);
}

Variable::Variable(std::uint32_t mem, std::uint32_t var)
    : mem_(mem), var_(var), row_(&Introspection::getVarDescriptor(mem, var)) {}

void Variable::setText(const std::string& text) {
    check(text);
    refuse(Introspection::setVarValue(mem_, var_, text.c_str()));
}

void Variable::setInt(int value) {
    setText(std::to_string(value));
}

void Variable::setFloat(double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%.9g", value);
    setText(text);
}

void Variable::setBool(bool value) {
    setText(value ? "true" : "false");
}

void Variable::setElement(int index, Members members) {
    JsonObject object;
    for (const auto& [name, value] : members)
        object.emplace_back(name, JsonObjectValue{value, false});
    refuse(Introspection::setVarValueJson(mem_, var_, object, index));
}

std::string Variable::text() const {
    return Introspection::getVarValue(mem_, var_, 0);
}

int Variable::toInt() const {
    std::int32_t value;
    std::memcpy(&value, address(), sizeof value);
    return value;
}

float Variable::toFloat() const {
    float value;
    std::memcpy(&value, address(), sizeof value);
    return value;
}

bool Variable::toBool() const {
    return *address() != 0;
}

const char* Variable::address() const {
    return *row_->memory + row_->location;
}

void Variable::check(const std::string& value) const {
    const bool isNumber = row_->baseType == BaseInt || row_->baseType == BaseFloat;
    std::string error = "out of bounds";
    if (isNumber && !Introspection::checkMinMax(mem_, var_, value.c_str(), error))
        refuse(value + ": " + error);
}

void Variable::refuse(const std::string& reason) const {
    if (!reason.empty())
        throwError(__FILE__, __LINE__, "%s: %s", name(), reason.c_str());
}
