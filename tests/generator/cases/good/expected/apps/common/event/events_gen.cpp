// Generated from gen/model; do not edit. Edit the model, then build, or run
//     python3 gen/generator/generate.py --model gen/model --out <folder>
#include "apps/common/event/events_gen.h"

constinit const char* const EVENT_NAME[EVENT_COUNT] = {
    "Invalid", // 0
    "Subscribe", // 1
    "VarAppLogLevelChanged", // 2
    "VarCanBusLoadChanged", // 3
    "VarProductNameChanged", // 4
    "VarRadioPowerChanged", // 5
    "VarFocusTorqueChanged", // 6
    "VarLastFocusChanged", // 7
    "VarSideChanged", // 8
    "VarLensesChanged", // 9
    "VarFlagsChanged", // 10
    "VarCounterChanged", // 11
    "VarActiveLensChanged", // 12
};
