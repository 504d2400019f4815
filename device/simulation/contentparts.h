#pragma once

/// The lists among the device's content, each where it belongs.

/// Accessories, radio modules, motors, Bluetooth devices, time zones, user setups.
void fillDeviceLists();
/// Lens files, the lens in use and its scales.
void fillLens();
/// What the camera offers, its supplies and its clips.
void fillCameraLists();
