#include "apps/variables/assignment.h"
#include "apps/variables/commands.h"
#include "apps/variables/connection.h"

#include <cstdio>

int set(const SetOptions& options) {
    CheckedSet values;
    bool isRefused = false;
    for (const std::string& text : options.assignments) {
        try {
            const Assignment assignment = Assignment::parse(text);
            values.add(assignment.name, assignment.value);
        } catch (const Refusal& refusal) {
            std::fprintf(stderr, "variables: %s\n", refusal.what());
            isRefused = true;
        }
    }
    if (isRefused) {
        std::fprintf(stderr, "Nothing has been stored.\n");
        return 1;
    }
    const Connection connection;
    values.store();
    return 0;
}
