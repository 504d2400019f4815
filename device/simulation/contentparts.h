#pragma once

/// The parts of fillContent that fill lists.

/// Accessories, radio modules, motors, Bluetooth devices, time zones, user setups.
void fillDeviceLists();
/// Lens files, the lens in use and its scales.
void fillLens();
/// The camera's choices, its supplies and its clips.
void fillCameraLists();
