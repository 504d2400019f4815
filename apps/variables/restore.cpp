#include "apps/common/values/checkedset.h"
#include "apps/common/values/refusal.h"
#include "apps/variables/commands.h"
#include "apps/variables/connection.h"
#include "apps/variables/snapshotfile.h"

#include <cstdio>
#include <stdexcept>
#include <unistd.h>

namespace {

using Json = nlohmann::json;

// The values of the snapshot whose variables match the patterns; all of them without a pattern.
Json wantedValues(const RestoreOptions& options) {
    Json memories = readSnapshot(options.file);
    if (options.patterns.empty())
        return memories;
    Json wanted = Json::object();
    for (const VariableId& id : matchingVariables(options.patterns)) {
        const std::string memory = MEMORY_ARRAY[id.mem].name;
        const std::string name = id.descriptor().name;
        if (memories.contains(memory) && memories[memory].contains(name))
            wanted[memory][name] = memories[memory][name];
    }
    return wanted;
}

// Checks the snapshot's value and adds it to the set. Throws Refusal.
void add(CheckedSet& set, const std::string& name, const Json& value) {

    if (value.is_null())
        throw Refusal(Refusal::Reason::WrongType, name + " could not be printed for the snapshot");
    const Reference reference = Reference::parse(name);
    set.add(name, value.is_string() ? valueFromText(reference, value.get_ref<const std::string&>()) : value);
}

bool isConfirmed(const RestoreOptions& options, std::size_t count) {
    if (options.isConfirmed)
        return true;
    if (isatty(STDIN_FILENO) == 0 || isatty(STDOUT_FILENO) == 0)
        throw std::runtime_error("Nothing has been stored: --yes stores the values");
    std::printf("Store %zu value%s? [y/N] ", count, count == 1 ? "" : "s");
    std::fflush(stdout);
    char answer[8] = "";
    return std::fgets(answer, sizeof answer, stdin) != nullptr && (*answer == 'y' || *answer == 'Y');
}

} // namespace

int restore(const RestoreOptions& options) {
    const Json wanted = wantedValues(options);
    CheckedSet set;
    std::size_t count = 0;
    std::size_t refused = 0;
    for (const Difference& difference : differences(presentValues(wanted), wanted)) {
        if (difference.to.is_discarded()) // a member that only this device has
            continue;
        try {
            add(set, difference.name, difference.to);
            std::puts(difference.text().c_str());
            ++count;
        } catch (const Refusal& refusal) {
            std::fprintf(stderr, "variables: %s\n", refusal.what());
            ++refused;
        }
    }
    if (count > 0 && !options.isPreview && isConfirmed(options, count)) {
        const Connection connection;
        set.store();
        std::printf("%zu value%s stored, %zu refused\n", count, count == 1 ? "" : "s", refused);
    }
    return refused == 0 ? 0 : 1;
}
