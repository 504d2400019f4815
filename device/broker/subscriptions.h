#pragma once

#include <cstdint>
#include <unordered_set>

/// The events that one client receives, none at first. The last call for an id counts: after subscribeAll()
/// and unsubscribe(7) the client receives every event but 7.
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
