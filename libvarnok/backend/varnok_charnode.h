// varnok_charnode.h - the check of a legacy driver's device node.
#pragma once

#include "records/varnok_export.h"

#include <cstdint>

extern "C" {

// 0 when the path names a character device that opens for reading, else 1.
VARNOK_PRIVATE uint8_t varnok_charnode_exist(const char *path);
}
