// Generated from gen/model; do not edit. Edit the model, then build, or run
//     python3 gen/generator/generate.py --model gen/model --out <folder>
#pragma once

#include <cstdint>

/// Number of events that have a name; ids run from 0 to EVENT_COUNT - 1.
constexpr std::uint32_t EVENT_COUNT = 13;

/// The names by id: "Var<variable>Changed" for every variable that notifies.
extern const char* const EVENT_NAME[EVENT_COUNT];

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
