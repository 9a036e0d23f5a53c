// Clip.h - The clip that the configuration of the example describes.
#pragma once

#include <Vx/VxIniFile.h>

/// Prints the section "Clip": identifier, image format and playout code.
void showClip(const VxIniFile& ini);
