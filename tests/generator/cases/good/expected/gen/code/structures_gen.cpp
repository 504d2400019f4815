// Generated from gen/model; do not edit. Edit the model, then build, or run
//     python3 gen/generator/generate.py --model gen/model --out <folder>
#include "gen/code/structures_gen.h"

#include "gen/code/enumerations_gen.h"
#include "gen/code/memories.h"

#include <cstddef>
#include <iterator>

namespace {

constinit const MemberDescriptor LENSFILE_MEMBERS[] = {
    {"Name", offsetof(LensFile, Name), BaseString, 6, nullptr},
    {"Side", offsetof(LensFile, Side), BaseEnum, 0, &ENUM_ARRAY[1]},
    {"Valid", offsetof(LensFile, Valid), BaseBool, 0, nullptr},
    {"Size", offsetof(LensFile, Size), BaseInt, 0, nullptr},
    {"Ratio", offsetof(LensFile, Ratio), BaseFloat, 0, nullptr},
};
constinit const StructureDescriptor LENSFILE_STRUCTURE = {
    "LensFile", LENSFILE_MEMBERS, std::size(LENSFILE_MEMBERS), sizeof(LensFile)};

} // namespace

std::string getLensFileIntrospection(void* address, int index) {
    return getStructureIntrospection(LENSFILE_STRUCTURE, address, index);
}

std::string setLensFileIntrospection(char* base, unsigned int mem, unsigned int var, Notify event,
    const char* value) {
    return setStructureIntrospection(LENSFILE_STRUCTURE, base, mem, var, event, value);
}

std::string setLensFileJson(char* base, unsigned int mem, unsigned int var, Notify event,
    const JsonObject& object) {
    return setStructureJson(LENSFILE_STRUCTURE, base, mem, var, event, object);
}
