#pragma once
// Replacing a file's whole content so that a crash at any moment leaves either the old or the new
// file: a temporary file next to it, fsync, rename over it, fsync of the folder.

#include <optional>
#include <string>
#include <string_view>

namespace drovel::platform {

// Replaces the file at path with text, creating its folder when missing. On failure the file is as
// it was, the temporary file is gone, and the result says which step failed and why ("renaming
// <path>.tmp: Permission denied"); on success the result is empty.
std::optional<std::string> writeFileAtomically(const std::string& path, std::string_view text);

}  // namespace drovel::platform
