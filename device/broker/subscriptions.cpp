#include "device/broker/subscriptions.h"

void Subscriptions::subscribe(std::uint32_t id) {
    set(id, true);
}

void Subscriptions::unsubscribe(std::uint32_t id) {
    set(id, false);
}

void Subscriptions::subscribeAll() {
    all_ = true;
    exceptions_.clear();
}

void Subscriptions::unsubscribeAll() {
    all_ = false;
    exceptions_.clear();
}

bool Subscriptions::wants(std::uint32_t id) const {
    return all_ != exceptions_.contains(id);
}

void Subscriptions::set(std::uint32_t id, bool isWanted) {
    if (isWanted == all_)
        exceptions_.erase(id);
    else
        exceptions_.insert(id);
}
