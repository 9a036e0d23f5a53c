// VxEmail.h - whether a text could be an e-mail address.
#pragma once

#include <Vx/VxExport.h>
#include <Vx/VxFwd.h>

namespace Vx {

/// Whether \p address, as a user typed it, could be an e-mail address: one '@' with text on
/// both sides, none of the characters " ( ) : ; , and backslash, and behind the '@' a '.' whose
/// last one is followed by at least two bytes of UTF-8.
///
/// Nothing else is looked at: blanks, several dots in a row and a leading dot pass.
/// Errors: none for any text; memory exhaustion passes through.
/// Threads: any.
VX_API bool isAcceptableEmailAddress(const LightweightString<wchar_t>& address);

} // namespace Vx
