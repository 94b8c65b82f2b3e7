// varnok_dbg.h - the debug log: lines assembled from pieces, sent to standard error and, with a
// time stamp, to the log file. Writers in different processes take turns through the log semaphore.
//
// The library's own sources write their lines with the macros of varnok_log.h.
#pragma once

#include "include/varnok_mgmt.h"
#include "records/varnok_export.h"

#include <cstdint>
#include <cstdio>
#include <sys/types.h>

extern "C" {

VARNOK_PRIVATE extern FILE *varnokdbg_fp;        // the log file while a print has it open
VARNOK_PRIVATE extern int32_t varnok_dbg_sem_id; // -1 when there is none
VARNOK_PRIVATE extern key_t varnok_dbg_semkey;

// Takes the mask from VARNOK_API_DEBUG, when it is set, and fetches the log semaphore for a nonzero
// mask.
VARNOK_PRIVATE void varnok_set_debug_level(void);

// Adds one piece to the line: the name (which may be null), the text, the number in the given radix
// (0: no number; 2 to 36), and the line's end when newline is 1. Does nothing while the mask is 0.
// Keeps errno.
VARNOK_PRIVATE void varnok_dbg_print(const char *func_name, const char *string, uint64_t number,
                                     uint8_t radix, uint8_t newline);

// A titled hexadecimal table of count elements of wd_size bits: 8, 16, 32 or 64. Whatever the mask.
VARNOK_PRIVATE void varnok_dbg_dump(const char *string, const void *buffer, uint32_t wd_size,
                                    uint64_t count);

// The log file, opened if need be; null when it cannot be.
VARNOK_PRIVATE FILE *varnok_dbg_get_fptr(void);

// The line buffer: a line leaves at its end, or after 251 characters.
VARNOK_PRIVATE void varnok_dbg_putc(char c);
VARNOK_PRIVATE void varnok_dbg_puts(const char *s);
VARNOK_PRIVATE void varnok_dbg_output_number(uint64_t n, uint8_t base);
}
