// Generated from gen/model; do not edit. Edit the model, then build, or run
//     python3 gen/generator/generate.py --model gen/model --out <folder>
//
// The data areas of the device's shared-memory segments as C structures, for every process that maps them. A segment
// begins with a 32-bit word that holds the data area's size:
//
//     0        4                        4 + MEM_..._SIZE
//     +--------+------------------------+
//     |  size  |  struct Mem...         |
//     +--------+------------------------+
//
// An enumeration is the index of its entry, bool is one byte, text ends with a zero byte if it is shorter than its
// field. Bytes named "gap" are unused.
//
// Processes with the same CATALOGUE_HASH were built with the same layout, event ids and enumerations.
#pragma once

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
#define LAYOUT_HOLDS(condition) static_assert(condition, #condition)
#else
#define LAYOUT_HOLDS(condition) _Static_assert(condition, #condition)
#endif

#define CATALOGUE_HASH "76451759e93ab510"

#define MEM_SETUP_SIZE 100
#define MEM_APP_SIZE 28

struct LensFile {
    char Name[6];
    int32_t Side; /* MotorSide */
    uint8_t Valid;
    int32_t Size;
    float Ratio;
};
LAYOUT_HOLDS(offsetof(struct LensFile, Name) == 0);
LAYOUT_HOLDS(offsetof(struct LensFile, Side) == 8);
LAYOUT_HOLDS(offsetof(struct LensFile, Valid) == 12);
LAYOUT_HOLDS(offsetof(struct LensFile, Size) == 16);
LAYOUT_HOLDS(offsetof(struct LensFile, Ratio) == 20);
LAYOUT_HOLDS(sizeof(struct LensFile) == 24);

struct MemSetup {
    char ProductName[20];
    uint8_t RadioPower;
    int32_t FocusTorque;
    int32_t Counter;
    float LastFocus;
    uint8_t gap36[4];
    int32_t Side; /* MotorSide */
    struct LensFile Lenses[2];
    uint8_t Flags[3];
    uint8_t gap95[5];
};
LAYOUT_HOLDS(offsetof(struct MemSetup, ProductName) == 0);
LAYOUT_HOLDS(offsetof(struct MemSetup, RadioPower) == 20);
LAYOUT_HOLDS(offsetof(struct MemSetup, FocusTorque) == 24);
LAYOUT_HOLDS(offsetof(struct MemSetup, Counter) == 28);
LAYOUT_HOLDS(offsetof(struct MemSetup, LastFocus) == 32);
LAYOUT_HOLDS(offsetof(struct MemSetup, Side) == 40);
LAYOUT_HOLDS(offsetof(struct MemSetup, Lenses) == 44);
LAYOUT_HOLDS(offsetof(struct MemSetup, Flags) == 92);
LAYOUT_HOLDS(sizeof(struct MemSetup) == MEM_SETUP_SIZE);

struct MemApp {
    int32_t AppLogLevel; /* LogLevel */
    struct LensFile ActiveLens;
};
LAYOUT_HOLDS(offsetof(struct MemApp, AppLogLevel) == 0);
LAYOUT_HOLDS(offsetof(struct MemApp, ActiveLens) == 4);
LAYOUT_HOLDS(sizeof(struct MemApp) == MEM_APP_SIZE);

#undef LAYOUT_HOLDS
