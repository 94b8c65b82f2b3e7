// own_file.h - files with fixed names in folders where every user may make files.
#pragma once

namespace varnok
{

// Opens, or with O_CREAT makes (mode 0644), what nobody but root and this process's user can have
// laid there or can change: a plain file with one name. -1 and errno otherwise; EPERM means that
// something else was there, which is left as it was.
int open_own_file(const char *path, int flags);

} // namespace varnok
