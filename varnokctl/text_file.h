// Writes a file that others read at any time.
#pragma once

#include <string>
#include <string_view>

namespace ctl
{

// Puts a new file in the place of the old one, at once and whole. Everybody may read it. A symbolic
// link there is replaced, not followed. On failure the old file stays. Returns 0 or the error number.
int replace_file(const std::string &path, std::string_view text);

} // namespace ctl
