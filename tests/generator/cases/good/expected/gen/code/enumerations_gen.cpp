// Generated from gen/model; do not edit. Edit the model, then build, or run
//     python3 gen/generator/generate.py --model gen/model --out <folder>
#include "gen/code/enumerations_gen.h"

static_assert(sizeof(gen::LogLevel) == sizeof(std::int32_t));
static_assert(static_cast<std::int32_t>(gen::LogLevel::DebugAll) == 0);
static_assert(static_cast<std::int32_t>(gen::LogLevel::DebugMost) == 1);

constinit const char* const LOGLEVEL_NAME_ARRAY[] = {
    "DebugAll",
    "DebugMost",
};
constinit const std::uint32_t LOGLEVEL_NAME_ARRAY_SIZE = 2;

constinit const char* const MOTORSIDE_NAME_ARRAY[] = {
    "Left",
    "Right",
};
constinit const std::uint32_t MOTORSIDE_NAME_ARRAY_SIZE = 2;

constinit const std::uint32_t ENUM_ARRAY_SIZE = 2;
constinit const EnumDescriptor ENUM_ARRAY[] = {
    {"LogLevel", LOGLEVEL_NAME_ARRAY, LOGLEVEL_NAME_ARRAY_SIZE},
    {"MotorSide", MOTORSIDE_NAME_ARRAY, MOTORSIDE_NAME_ARRAY_SIZE},
};

std::string getLogLevelIntrospection(void* address, int index) {
    return getEnumIntrospection(ENUM_ARRAY[0], address, index);
}

std::string setLogLevelIntrospection(char* base, unsigned int mem, unsigned int var, Notify event,
    const char* value) {
    return setEnumIntrospection(ENUM_ARRAY[0], base, mem, var, event, value);
}

std::string getMotorSideIntrospection(void* address, int index) {
    return getEnumIntrospection(ENUM_ARRAY[1], address, index);
}

std::string setMotorSideIntrospection(char* base, unsigned int mem, unsigned int var, Notify event,
    const char* value) {
    return setEnumIntrospection(ENUM_ARRAY[1], base, mem, var, event, value);
}
