// Generated from gen/model; do not edit. Edit the model, then build, or run
//     python3 gen/generator/generate.py --model gen/model --out <folder>
#pragma once

#include "apps/common/introspection/setters.h"

#include <cstdint>

static_assert(CATALOGUE_VERSION == 1, "the generator and the catalogue's support header differ");
static_assert(EVENT_COUNT == 13, "the model and the event layer differ in the number of events");

/// The id of every event by its name: gen::EventId::VarFocusTorqueChanged.
namespace gen::EventId {

enum : std::uint32_t {
    Invalid = 0,
    Subscribe = 1,
    VarAppLogLevelChanged = 2,
    VarCanBusLoadChanged = 3,
    VarProductNameChanged = 4,
    VarRadioPowerChanged = 5,
    VarFocusTorqueChanged = 6,
    VarLastFocusChanged = 7,
    VarSideChanged = 8,
    VarLensesChanged = 9,
    VarFlagsChanged = 10,
    VarCounterChanged = 11,
    VarActiveLensChanged = 12,
};

} // namespace gen::EventId
