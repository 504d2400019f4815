#pragma once

#include <cstdint>
#include <unordered_set>

/// Which events one client receives: none at first. The last word about an id holds: after subscribeAll() and
/// unsubscribe(7) every event but 7 is wanted.
class Subscriptions {
public:
    void subscribe(std::uint32_t id);
    void unsubscribe(std::uint32_t id);
    void subscribeAll();
    void unsubscribeAll();

    bool wants(std::uint32_t id) const;

private:
    void set(std::uint32_t id, bool isWanted);

    bool all_ = false;
    std::unordered_set<std::uint32_t> exceptions_; ///< ids for which the opposite of all_ holds
};
