// Terminals and their widths in columns.
#pragma once

#include <cstddef>

namespace ctl
{

// 0 when it is no terminal; the usual width when it does not tell.
size_t terminal_width(int descriptor);

// Of standard output, or of what stands in for it.
size_t output_width();

} // namespace ctl
