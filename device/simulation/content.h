#pragma once

#include "device/simulation/variable.h"

#include <string>
#include <vector>

/// The memories' content after the device's start: the product and its versions, the user's settings, the
/// lens and its files, the camera with its lists and clips, motors, radio, accessories, time zones.

/// Fills all memories. REQUIRES: they are mapped and zero, and a broker connection.
void fillContent();

/// The camera's choices, in the order of its lists.
extern const std::vector<double> SPEEDS;   ///< frames per second
extern const std::vector<double> SHUTTERS; ///< degrees
extern const std::vector<double> EXPOSURE_INDEXES;
extern const std::vector<double> WHITE_BALANCES; ///< Kelvin

constexpr int CLIP_LIST_CAPACITY = 500;

/// The name of the camera's n-th clip.
std::string clipName(int number);
/// Writes a clip at `place` of a clip list.
void showClip(Variable& list, int place, int number, int frames, double speed);
/// The flags of a clip list whose first `count` clips can be played, as the buffer's text.
std::string clipFlags(int count);
