// Generated from gen/model; do not edit. Edit the model, then build, or run
//     python3 gen/generator/generate.py --model gen/model --out <folder>
#pragma once

#include "gen/code/enumerations_gen.h"
#include "apps/common/event/events_gen.h"
#include "gen/code/structures_gen.h"

#include <string>

static_assert(CATALOGUE_VERSION == 1, "the generator and the catalogue's support header differ");
static_assert(MEMORY_ARRAY_SIZE == 2, "the model and the support header differ in the number of memories");

// The names of the memories.
extern const std::string MEM_SETUP;
extern const std::string MEM_APP;

// The addresses of the memories' data areas; null while a segment is not mapped.
extern char* gMemSetup;
extern char* gMemApp;
