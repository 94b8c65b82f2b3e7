// Lays out aligned columns.
#pragma once

#include <string>
#include <vector>

#include "varnokctl/text.h"

namespace ctl
{

struct table_column {
    std::string title;
    bool right;   // for numbers, which are always whole
    bool shrinks; // gives way before other texts do when the table is too wide
};

using table_row = std::vector<std::string>;

// A table with a heading. Empty cells show a dash.
std::string table_text(const std::vector<table_column> &columns, const std::vector<table_row> &rows,
                       const output_style &style);

// The same, a block for each row and a line for each cell.
std::string sheets_text(const std::vector<table_column> &columns,
                        const std::vector<table_row> &rows);

} // namespace ctl
