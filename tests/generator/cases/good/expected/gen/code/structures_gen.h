// Generated from gen/model; do not edit. Edit the model, then build, or run
//     python3 gen/generator/generate.py --model gen/model --out <folder>
#pragma once

#include "apps/common/introspection/setters.h"

#include <string>

static_assert(CATALOGUE_VERSION == 1, "the generator and the catalogue's support header differ");

std::string getLensFileIntrospection(void* address, int index);
std::string setLensFileIntrospection(char* base, unsigned int mem, unsigned int var, Notify event,
    const char* value);
std::string setLensFileJson(char* base, unsigned int mem, unsigned int var, Notify event,
    const JsonObject& object);
