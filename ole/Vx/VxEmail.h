// VxEmail.h - A plausibility check for e-mail addresses.
#pragma once

#include <Vx/LightweightString.h>
#include <Vx/VxExport.h>

namespace Vx {

/// Returns whether \p address could be an e-mail address.
///
///     Vx::isAcceptableEmailAddress(L"anna@example.org") // true
///
/// It must contain exactly one '@', with characters on both sides; none of " ( ) : ; , and
/// backslash; and a '.' after the '@', the last of which is followed by at least two bytes of
/// UTF-8. Nothing else is checked: spaces, consecutive dots and a leading dot are accepted.
///
/// Errors: none, for any string; only exhausted memory throws.
/// Thread safety: may be called from any thread.
VX_API bool isAcceptableEmailAddress(const LightweightString<wchar_t>& address);

} // namespace Vx
