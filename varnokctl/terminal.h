// The widths of terminals, in columns.
#pragma once

#include <cstddef>
#include <cstdint>

namespace ctl
{

// 0 when it is no terminal; the usual width when the terminal does not tell its own.
size_t terminal_width(int descriptor);

constexpr size_t unlimited_width = SIZE_MAX;

// COLUMNS, else the width of standard output. Off a terminal it is unlimited.
size_t output_width();

// Whether standard output is a terminal that shows colours, and NO_COLOR does not forbid them.
bool output_has_colours();

} // namespace ctl
