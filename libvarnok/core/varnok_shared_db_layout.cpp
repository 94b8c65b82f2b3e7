// Processes of other versions map the same file.
#include "core/varnok_shared_db.h"
#include "records/layout_assert.h"

// clang-format off

#define RECORD varnok_hbaptevq
SIZE(4116);
AT(eventbuf, 0);   AT(q_head, 4096);  AT(q_tail, 4098);  AT(rsvd, 4100);
#undef RECORD

#define RECORD varnok_shared_db
SIZE(163840);
AT(libinst_flags, 0);  AT(hbaptevq, 32);      AT(reserved, 32960);
#undef RECORD

// clang-format on
