// Generated from gen/model; do not edit. Edit the model, then build, or run
//     python3 gen/generator/generate.py --model gen/model --out <folder>
#pragma once

#include "apps/common/introspection/setters.h"
#include "apps/common/diagnostics/loglevel.h"

#include <cstdint>
#include <string>

static_assert(CATALOGUE_VERSION == 1, "the generator and the catalogue's support header differ");

namespace gen {

enum class MotorSide : std::int32_t {
    Left,
    Right,
};

} // namespace gen

extern const EnumDescriptor ENUM_ARRAY[2];

extern const char* const LOGLEVEL_NAME_ARRAY[2];
extern const std::uint32_t LOGLEVEL_NAME_ARRAY_SIZE;
std::string getLogLevelIntrospection(void* address, int index);
std::string setLogLevelIntrospection(char* base, unsigned int mem, unsigned int var, Notify event,
    const char* value);

extern const char* const MOTORSIDE_NAME_ARRAY[2];
extern const std::uint32_t MOTORSIDE_NAME_ARRAY_SIZE;
std::string getMotorSideIntrospection(void* address, int index);
std::string setMotorSideIntrospection(char* base, unsigned int mem, unsigned int var, Notify event,
    const char* value);
