// FileAttributes.h - Copies owner, permissions and extended attributes to another file.
#pragma once

/// Gives the open file \p to, which belongs to this user, what a file that replaces \p from
/// must have: owner, group, permissions, access list (POSIX ACL) and user attributes. Never
/// widens access:
///
/// - Where the user may not set the owner, the set-user-ID bit is dropped.
/// - Where the user may not set the group, the group gets no more rights than everybody, and the
///   set-group-ID bit is dropped.
/// - An access list that \p to has inherited from its folder is removed.
///
/// \returns 0, or an errno value if an access list or attribute cannot be kept
/// \throws std::bad_alloc
int copyAttributes(int from, int to);
