// Lays out text in aligned columns.
#pragma once

#include "varnokctl/text.h"

#include <string>
#include <vector>

namespace ctl
{

struct table_column {
    std::string title;
    bool right;   // aligned, for numbers: these are never cut
    bool shrinks; // is cut before other texts when the table is too wide
};

struct table_row {
    std::vector<std::string> cells;
    bool bad = false;    // coloured, if colours are wanted
    std::string above{}; // lines that begin a block; a blank line comes before them
};

// A line for each row, below a heading. Empty cells show a dash. A table that cannot be made as
// narrow as the style's width becomes a block for each row.
std::string table_text(const std::vector<table_column> &columns, const std::vector<table_row> &rows,
                       const output_style &style);

// The same as a block for each row, with a line for each cell. Only lines that are wider than the
// width are cut.
std::string sheets_text(const std::vector<table_column> &columns,
                        const std::vector<table_row> &rows, const output_style &style);

} // namespace ctl
