// own_file.h - files with fixed names in folders where every user may make files.
#pragma once

namespace varnok
{

struct own_file {
    int fd = -1;          // -1 with errno when there is none
    bool created = false; // by this call, and so empty
    const char *refused =
        nullptr; // why what lies under the name is not used; null: for no such reason
};

// Whose plain file is used: one of root's or of this process's user, or anybody's.
enum class owner_rule { trusted, anybody };

// Opens the plain file under the name, or makes it (mode 0644). A link, a second name, a folder, a
// FIFO and a device are refused and left as they are.
//
// With owner_rule::trusted a file that others may write to is closed to them, and another user's
// file gives way to a new one; only root can put it there.
own_file open_own_file(const char *path, int flags, owner_rule rule);

} // namespace varnok
