// Processes of other versions map the same file.
#include "core/varnok_shared_db.h"
#include "records/layout_assert.h"

SIZE(varnok_hbaptevq, 4116);
AT(varnok_hbaptevq, eventbuf, 0);
AT(varnok_hbaptevq, q_head, 4096);
AT(varnok_hbaptevq, q_tail, 4098);
AT(varnok_hbaptevq, rsvd, 4100);

SIZE(varnok_shared_db, 163840);
AT(varnok_shared_db, libinst_flags, 0);
AT(varnok_shared_db, hbaptevq, 32);
AT(varnok_shared_db, reserved, 32960);
