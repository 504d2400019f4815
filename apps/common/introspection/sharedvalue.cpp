#include "apps/common/introspection/sharedvalue.h"

#include "apps/common/event/serverconnection.h"

#include <algorithm>
#include <cstring>

std::int32_t SharedInt::read() const {
    std::int32_t value = 0;
    if (place.address() != nullptr)
        std::memcpy(&value, place.address(), sizeof value);
    return value;
}

void SharedInt::store(std::int32_t value) const {
    if (place.address() == nullptr || read() == value)
        return;
    std::memcpy(place.address(), &value, sizeof value);
    postEvent({place.event, 0, 0});
}

void SharedFlag::raise() const {
    char* flag = place.address();
    if (flag == nullptr || *flag == 1)
        return;
    *flag = 1;
    postEvent({place.event, 0, 0});
}

std::string SharedText::read() const {
    return place.address() == nullptr ? std::string() : fieldText(place.address(), capacity);
}

void SharedText::store(const std::string& text) const {
    const std::string plain = text.substr(0, text.find('\0'));
    if (place.address() == nullptr || read() == plain)
        return;
    const std::size_t size = std::min(plain.size(), capacity - 1);
    std::memcpy(place.address(), plain.data(), size);
    place.address()[size] = '\0';
    postEvent({place.event, 0, 0});
}

std::string fieldText(const char* field, std::size_t capacity) {
    return {field, strnlen(field, capacity)};
}
