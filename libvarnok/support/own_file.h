// own_file.h - files with fixed names in folders where every user may make files.
#pragma once

namespace varnok
{

// Opens, or with O_CREAT makes (mode 0644), what belongs to root or to this process's user, and
// what nobody else can change: a plain file with one name. -1 and errno otherwise; EPERM means that
// something else is there, which is left as it is.
int open_own_file(const char *path, int flags);

} // namespace varnok
