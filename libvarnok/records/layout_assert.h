/* layout_assert.h - holds a record to its size and its fields to their offsets, at compile time. */
#ifndef LAYOUT_ASSERT_H
#define LAYOUT_ASSERT_H

#include <assert.h>
#include <stddef.h>

#define SIZE(record, size) static_assert(sizeof(record) == (size), #record)
#define AT(record, field, offset) static_assert(offsetof(record, field) == (offset), #field)

#endif
