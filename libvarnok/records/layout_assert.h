// layout_assert.h - holds a record to its size and its fields to their offsets, at compile time.
#pragma once

#include <cstddef>

#define SIZE(record, size) static_assert(sizeof(record) == (size))
#define AT(record, field, offset) static_assert(offsetof(record, field) == (offset))
