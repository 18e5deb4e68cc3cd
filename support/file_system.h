// File-system operations beyond plain files: unique directories and symbolic
// links that are replaced atomically.
// Thread-safety: the functions keep no state.
#pragma once

#include <string>

namespace vyn::support {

// Creates a new directory named `prefix` followed by six random characters
// (for example "/tmp/vyn-sim-" gives "/tmp/vyn-sim-Ab3xYz"), readable only by
// this user. The directory holding it must exist. Empty on failure.
std::string CreateUniqueDirectory(const std::string& prefix);

// Removes an empty directory; true when it is gone afterwards.
bool RemoveEmptyDirectory(const std::string& path);

// Removes a file or a symbolic link (not what it points to); true when it is
// gone afterwards, also when it was never there.
bool RemoveFile(const std::string& path);

// Makes `link` a new symbolic link to `target`; fails (errno EEXIST) when
// anything at all is there already, so nothing of someone else's is replaced.
bool CreateSymbolicLink(const std::string& target, const std::string& link);

// True when `link` is a symbolic link whose content is exactly `target`.
bool IsSymbolicLinkTo(const std::string& link, const std::string& target);

// Removes `link` only while it is a symbolic link to `target`: a link that
// someone replaced meanwhile (by a file or a link elsewhere) stays. True when
// it was removed.
bool RemoveSymbolicLinkTo(const std::string& link, const std::string& target);

// Re-points `link` from `old_target` to `new_target` as ReplaceSymbolicLink
// does, but only while `link` still points to `old_target`.
bool RepointSymbolicLink(const std::string& link, const std::string& old_target,
                         const std::string& new_target);

// Makes `link` a symbolic link to `target`, replacing whatever `link` was, in
// one step: a program that opens `link` meanwhile finds either the old or
// the new target, never no link at all. A temporary link beside `link` is
// created and renamed over it. False (and `link` unchanged) on failure.
bool ReplaceSymbolicLink(const std::string& target, const std::string& link);

}  // namespace vyn::support
