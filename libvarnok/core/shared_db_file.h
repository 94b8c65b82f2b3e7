// shared_db_file.h - the file of the shared database: made, grown from an older and shorter one,
// and kept whole.
#pragma once

#include "records/varnok_export.h"

extern "C" {
VARNOK_PRIVATE extern const char varnok_db_fname[40];
}

namespace varnok
{

// The descriptor, or -1 with nothing open.
int open_shared_file();

// Brings the file back to its size when another process has cut it: to touch the mapping beyond the
// file's end would kill this one. 0, or the error number when it stays short. A descriptor that is
// another file's by now tells nothing: 0, as if it were whole.
int make_shared_file_whole(int fd);

} // namespace varnok
