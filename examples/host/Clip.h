// Clip.h - the clip that the example's configuration describes.
#pragma once

#include <Vx/VxIniFile.h>

/// Prints what the section "Clip" says: the identifier, the picture and the playout code.
void showClip(const VxIniFile& ini);
