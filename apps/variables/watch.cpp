#include "apps/common/introspection/introspection.h"
#include "apps/common/values/readablevalue.h"
#include "apps/variables/assignment.h"
#include "apps/variables/clock.h"
#include "apps/variables/commands.h"
#include "apps/variables/connection.h"
#include "apps/variables/output.h"
#include "apps/variables/style.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <set>

namespace {

using Steady = std::chrono::steady_clock;

constexpr std::chrono::milliseconds TURN{1000};
constexpr std::chrono::milliseconds SHORT_TURN{50}; // while lines wait for their reader

// Prints the changes of the variables that it knows, of structures each changed member.
class ChangePrinter : public ServerConnection::EventHandler {
public:
    ChangePrinter(const std::vector<VariableId>& variables, bool isJson, PatientOutput& output)
        : isJson_(isJson), output_(output) {
        for (const MemoryDescriptor& memory : MEMORY_ARRAY) {
            printed_.emplace_back(*memory.basePointer, *memory.basePointer + memory.size);
            present_.push_back(printed_.back());
        }
        known_.insert(variables.begin(), variables.end());
    }

    void handleEvent(const Notify& event) override {
        VariableId id;
        Introspection::getVarLocation(event, id.mem, id.var);
        // Events that are not a variable's have the place of the first variable.
        if (id.descriptor().event.id == event.id)
            printChanges(id);
    }

    void printChanges(const VariableId& id) {
        const VariableDescriptor& variable = id.descriptor();
        if (!known_.contains(id))
            return;
        char* const present = present_[id.mem].data() + variable.location;
        std::memcpy(present, *variable.memory + variable.location, variable.size);
        for (const Reference& leaf : leaves(id))
            printChange(leaf);
        std::memcpy(printed_[id.mem].data() + variable.location, present, variable.size);
    }

private:
    void printChange(const Reference& leaf) {
        const std::string old = readableValue(leaf, printed_[leaf.variable.mem].data());
        const std::string value = readableValue(leaf, present_[leaf.variable.mem].data());
        if (old != value)
            print(leaf.name(), old, value);
    }

    void print(const std::string& name, const std::string& old, const std::string& value) const {
        const auto now = std::chrono::system_clock::now();
        if (isJson_)
            output_.add(R"({"time":")" + universalTime(now) + R"(","variable":")" + name + R"(","old":)" +
                        old + R"(,"value":)" + value + "}\n");
        else
            output_.add(styled(Style::Faint, localTime(now)) + "  " + styled(Style::Cyan, name) + "  " + old +
                        " -> " + styled(Style::Bold, value) + "\n");
    }

    bool isJson_;
    PatientOutput& output_;
    std::set<VariableId> known_;
    // Copies of the memories: what has been printed, and what is compared with it.
    std::vector<std::vector<char>> printed_;
    std::vector<std::vector<char>> present_;
};

// The state for which --until waits.
class Condition {
public:
    explicit Condition(const std::string& text) : isGiven_(!text.empty()) {
        if (!isGiven_)
            return;
        const Assignment assignment = Assignment::parse(text);
        CheckedSet().add(assignment.name, assignment.value); // refuses a value that can never be
        reference_ = Reference::parse(assignment.name);
        value_ = assignment.value;
    }

    bool isGiven() const { return isGiven_; }
    bool isMet() const {
        if (!isGiven_)
            return false;
        const std::string text = readableValue(reference_, *reference_.variable.descriptor().memory);
        const nlohmann::json present = nlohmann::json::parse(std::string_view(text), nullptr, false);
        if (present.is_number_float() || value_.is_number_float())
            return present.is_number() && present.get<float>() == value_.get<float>();
        return present == value_;
    }
    // REQUIRES: isGiven()
    const VariableId& variable() const { return reference_.variable; }

private:
    bool isGiven_;
    Reference reference_;
    nlohmann::json value_;
};

// Milliseconds until the end, at most one turn.
int remainingMs(const std::optional<Steady::time_point>& end, std::chrono::milliseconds turn) {
    if (!end)
        return static_cast<int>(turn.count());
    const auto remaining = std::chrono::ceil<std::chrono::milliseconds>(*end - Steady::now());
    return static_cast<int>(std::clamp(remaining, std::chrono::milliseconds(0), turn).count());
}

// Returns the exit status.
int follow(const WatchOptions& options, PatientOutput& output) {
    ChangePrinter printer(matchingVariables(options.patterns), options.isJson, output);
    const Condition condition(options.until);
    std::optional<Steady::time_point> end;
    if (options.duration)
        end = Steady::now() + *options.duration;
    Connection connection;
    connection->handler = &printer;
    connection->subscribeAll();
    while (!condition.isMet()) {
        if ((end && Steady::now() >= *end) || !output.flush())
            return condition.isGiven() ? 1 : 0;
        connection.requireOpen();
        const int patience = remainingMs(end, output.isWaiting() ? SHORT_TURN : TURN);
        if (gen::getEventPoll().wait(patience, false) == EventPoll::Terminate)
            return condition.isGiven() ? 1 : 0;
    }
    printer.printChanges(condition.variable()); // its event may be on its way
    return 0;
}

} // namespace

int watch(const WatchOptions& options) {
    PatientOutput output;
    try {
        const int status = follow(options, output);
        output.finish();
        return status;
    } catch (...) {
        output.flush();
        throw;
    }
}
