/* layout_assert.h - holds a record to its size and its fields to their offsets, at compile time. A
 * file defines RECORD, lists its fields, and undefines it. */
#ifndef LAYOUT_ASSERT_H
#define LAYOUT_ASSERT_H

#include <assert.h>
#include <stddef.h>

#define SIZE(size) static_assert(sizeof(RECORD) == (size), "the record's size")
#define AT(field, offset) static_assert(offsetof(RECORD, field) == (offset), #field)

#endif
