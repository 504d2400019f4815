#pragma once

#include "apps/common/event/events_gen.h"

#include <bitset>
#include <cstdint>

/// A variable's number in this process: the id of its event. Some numbers belong to no variable.
using VariableNumber = std::uint32_t;

/// Variables by their numbers: one bit for each event id.
using VariableSet = std::bitset<EVENT_COUNT>;
