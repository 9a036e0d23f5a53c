// VxTolerance.h - Floating-point comparison within a few units in the last place.
//
//     if (TolerantEq<double>(position, end)) stop();
#pragma once

#include <Vx/VxExport.h>

/// Returns whether \p a and \p b are at most 99 units in the last place apart. Defined for float
/// and double.
///
/// Deliberate: a negative \p b counts as one unit further down than the same value as \p a, so
/// the order of the arguments matters at the limit. NaNs and infinities are compared by their
/// bits like any number: a NaN equals itself.
/// Deliberate: the distance is a signed integer, whose most negative value counts as small. So
/// numbers that are exactly 2^31 units (float) or 2^63 units (double) apart are equal, such as -2
/// and 2, or -1 and 4.
///
/// Thread safety: any thread, here and below.
template <class T> bool TolerantEq(T a, T b) = delete;
template <> VX_API bool TolerantEq<float>(float a, float b);
template <> VX_API bool TolerantEq<double>(double a, double b);

/// Returns whether \p a is greater than \p b, and not equal by TolerantEq(). False if either is a
/// NaN. Defined for double.
template <class T> bool TolerantGt(T a, T b) = delete;
template <> VX_API bool TolerantGt<double>(double a, double b);
