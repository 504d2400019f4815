#include "apps/common/introspection/sharedvalue.h"

#include "apps/common/introspection/store.h"
#include "apps/common/introspection/valueconversion.h"

#include <cstring>

std::int32_t SharedInt::read() const {
    std::int32_t value = 0;
    if (place.address() != nullptr)
        std::memcpy(&value, place.address(), sizeof value);
    return value;
}

void SharedInt::store(std::int32_t value) const {
    if (place.address() != nullptr)
        storeAndPost(place.address(), &value, sizeof value, {place.event, 0, 0});
}

void SharedFlag::raise() const {
    constexpr std::uint8_t RAISED = 1;
    if (place.address() != nullptr)
        storeAndPost(place.address(), &RAISED, sizeof RAISED, {place.event, 0, 0});
}

std::string SharedText::read() const {
    return place.address() == nullptr ? std::string() : fieldText(place.address(), capacity);
}

void SharedText::store(const std::string& text) const {
    if (place.address() == nullptr)
        return;
    const std::string whole = text.substr(0, text.find('\0'));
    const std::string stored = whole.substr(0, capacity - 1);
    const bool isCut = stored.size() < whole.size();
    if (storeIfChanged(place.address(), stored.c_str(), stored.size() + 1) || isCut)
        postEvent({place.event, 0, 0});
}
