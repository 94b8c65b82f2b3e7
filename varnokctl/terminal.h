// The widths of terminals, in columns.
#pragma once

#include <cstddef>

namespace ctl
{

// 0 when it is no terminal; the usual width when the terminal does not tell its own.
size_t terminal_width(int descriptor);

// COLUMNS, else the width of standard output, else the usual width.
size_t output_width();

} // namespace ctl
