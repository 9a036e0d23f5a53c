// VxTolerance.h - floating-point comparison within a few units in the last place.
#pragma once

#include <Vx/VxExport.h>

/// Whether \p a and \p b are at most 99 representable numbers apart. Defined for float and
/// double.
///
/// Deliberate: a negative \p b counts as one place further down than the same value as
/// \p a, so the order of the arguments can matter at the edge. NaNs and infinities compare by
/// their bits like any other pattern, so two NaNs of one pattern are equal.
///
/// Threads: any, here and below.
template <class T> bool TolerantEq(T a, T b) = delete;
template <> VX_API bool TolerantEq<float>(float a, float b);
template <> VX_API bool TolerantEq<double>(double a, double b);

/// Whether \p a is greater than \p b by more than the tolerance of TolerantEq(); false when
/// either is a NaN. Defined for double.
template <class T> bool TolerantGt(T a, T b) = delete;
template <> VX_API bool TolerantGt<double>(double a, double b);
