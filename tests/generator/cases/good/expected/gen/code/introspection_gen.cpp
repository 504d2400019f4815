// Generated from gen/model; do not edit. Edit the model, then build, or run
//     python3 gen/generator/generate.py --model gen/model --out <folder>
#include "gen/code/introspection_gen.h"

#include <iterator>

const std::string MEM_SETUP = "MemSetup";
const std::string MEM_APP = "MemApp";

constinit char* gMemSetup = nullptr;
constinit char* gMemApp = nullptr;

namespace {

constinit VariableDescriptor MEM_SETUP_VARIABLES[] = {
    {{4, 0, 0}, "ProductName", &gMemSetup, 0, "string", BaseString,
        getStringIntrospection<20>, setStringIntrospection,
        nullptr, nullptr, "20", 1, nullptr, 20},
    {{5, 0, 0}, "RadioPower", &gMemSetup, 20, "bool", BaseBool,
        getBoolIntrospection, setBoolIntrospection,
        nullptr, nullptr, nullptr, 0, nullptr, 1},
    {{6, 0, 0}, "FocusTorque", &gMemSetup, 24, "int", BaseInt,
        getIntIntrospection, setIntIntrospection,
        "1", "4", nullptr, 0, nullptr, 4},
    {{7, 0, 0}, "LastFocus", &gMemSetup, 32, "float", BaseFloat,
        getFloatIntrospection, setFloatIntrospection,
        "-1e+38", "1e+38", nullptr, 0, nullptr, 4},
    {{8, 0, 0}, "Side", &gMemSetup, 40, "MotorSide", BaseEnum,
        getMotorSideIntrospection, setMotorSideIntrospection,
        nullptr, nullptr, nullptr, 0, nullptr, 4},
    {{9, 0, 0}, "Lenses", &gMemSetup, 44, "LensFile", BaseStruct,
        getLensFileIntrospection, setLensFileIntrospection,
        nullptr, nullptr, "2", 1, setLensFileJson, 48},
    {{10, 0, 0}, "Flags", &gMemSetup, 92, "buffer", BaseBuffer,
        getBufferIntrospection<3>, setBufferIntrospection<3>,
        nullptr, nullptr, "3", 0, nullptr, 3},
    {{11, 0, 0}, "Counter", &gMemSetup, 28, "int", BaseInt,
        getIntIntrospection, setIntIntrospection,
        nullptr, "10", nullptr, 0, nullptr, 4},
};

constinit VariableDescriptor MEM_APP_VARIABLES[] = {
    {{2, 0, 0}, "AppLogLevel", &gMemApp, 0, "LogLevel", BaseEnum,
        getLogLevelIntrospection, setLogLevelIntrospection,
        nullptr, nullptr, nullptr, 0, nullptr, 4},
    {{12, 0, 0}, "ActiveLens", &gMemApp, 4, "LensFile", BaseStruct,
        getLensFileIntrospection, setLensFileIntrospection,
        nullptr, nullptr, nullptr, 0, setLensFileJson, 24},
};

} // namespace

constinit const MemoryDescriptor MEMORY_ARRAY[MEMORY_ARRAY_SIZE] = {
    {"MemSetup", MEM_SETUP_VARIABLES, std::size(MEM_SETUP_VARIABLES), 100, &gMemSetup},
    {"MemApp", MEM_APP_VARIABLES, std::size(MEM_APP_VARIABLES), 28, &gMemApp},
};
