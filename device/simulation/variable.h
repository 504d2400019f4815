#pragma once

#include "apps/common/introspection/catalogue.h"

#include <cstdint>
#include <initializer_list>
#include <string>
#include <utility>

/// One variable of the device by name. Setting it checks the bounds, stores the value and posts the event if
/// the value changes, as the device's processes do.
///
/// Setting throws std::runtime_error with the variable's name and the reason if the value does not fit,
/// because the simulation shows only values that the device can have. It also throws without a broker.
class Variable {
public:
    /// Members of a structure: name, and value as text.
    using Members = std::initializer_list<std::pair<const char*, std::string>>;

    /// Throws std::runtime_error with "Unknown variable <name>".
    explicit Variable(const std::string& name);
    Variable(std::uint32_t mem, std::uint32_t var);

    const char* name() const { return row_->name; }
    const VariableDescriptor& row() const { return *row_; }
    std::uint32_t eventId() const { return row_->event.id; }

    /// The value in the form of the type's setter: a number, "true", an entry's name, characters.
    void setText(const std::string& text);
    void setInt(int value);
    void setFloat(double value);
    void setBool(bool value);
    /// Sets the named members of one element of a structure.
    void setElement(int index, Members members);

    std::string text() const;
    /// REQUIRES: an int or enumeration; a float; a bool.
    int toInt() const;
    float toFloat() const;
    bool toBool() const;

private:
    const char* address() const;
    void check(const std::string& value) const;
    void refuse(const std::string& reason) const;

    std::uint32_t mem_ = 0;
    std::uint32_t var_ = 0;
    const VariableDescriptor* row_ = nullptr;
};
