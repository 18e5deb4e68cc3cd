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

// Makes `link` a symbolic link to `target`, replacing whatever `link` was, in
// one step: a program that opens `link` meanwhile finds either the old or
// the new target, never no link at all. A temporary link beside `link` is
// created and renamed over it. False (and `link` unchanged) on failure.
bool ReplaceSymbolicLink(const std::string& target, const std::string& link);

}  // namespace vyn::support
