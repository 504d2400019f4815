#pragma once

#include "apps/common/event/notify.h"
#include "apps/web/service/variables/changedset.h"

#include <map>
#include <string>

class Request;
class VariableTree;

/// The changes that the broker reports, and the requests that wait for them. A change that is reported while
/// no request waits is dropped by the next answer().
class UpdatePolls {
public:
    /// `tree` must outlive the object.
    explicit UpdatePolls(VariableTree& tree) : tree_(tree) {}

    /// Marks all variables as changed, for requests that may have missed changes.
    void markAll();

    /// Marks the event's variable as changed; writes it to the log while the device's VariableLogging is set.
    /// An id beyond the known events is logged at Warn and dropped.
    void handleEvent(const Notify& notify);

    /// Lets the request wait for the next change.
    static void hold(Request& request);

    /// Sends the changes since the last call to every waiting request among `open`. Without a change, does
    /// nothing. A request that cannot be answered gets an Error line.
    void answer(const std::map<unsigned int, Request*>& open);

private:
    void logChange(const Notify& notify);
    std::string takeDocument();

    VariableTree& tree_;
    ChangedSet changed_;
};
