#include "varnokctl/table.h"

#include <algorithm>
#include <numeric>

namespace ctl
{
namespace
{

constexpr std::string_view gap = "  ";
constexpr size_t least_width = 8; // columns are not cut to less

const std::string &shown(const std::string &cell)
{
    static const std::string nothing = "-";
    return cell.empty() ? nothing : cell;
}

std::vector<size_t> natural_widths(const std::vector<table_column> &columns, const table_rows &rows)
{
    std::vector<size_t> widths;
    widths.reserve(columns.size());
    for (const table_column &column : columns)
        widths.push_back(display_width(column.title));
    for (size_t number = 0; number < rows.count; ++number) {
        const table_row row = rows.row(number);
        for (size_t at = 0; at < columns.size(); ++at)
            widths[at] = std::max(widths[at], display_width(shown(row.cells[at])));
    }
    return widths;
}

// The widest column that can still shrink; the number of columns when there is none.
size_t widest_of(const std::vector<table_column> &columns, const std::vector<size_t> &widths,
                 bool long_texts_only)
{
    size_t widest = columns.size();
    size_t width = least_width;
    for (size_t at = 0; at < columns.size(); ++at) {
        const bool may_shrink = columns[at].shrinks || !(long_texts_only || columns[at].right);
        if (may_shrink && widths[at] > std::max(width, display_width(columns[at].title)))
            width = widths[widest = at];
    }
    return widest;
}

// Returns whether the table fits then.
bool shrink(std::vector<size_t> &widths, const std::vector<table_column> &columns, size_t limit)
{
    size_t total = std::accumulate(widths.begin(), widths.end(), gap.size() * (widths.size() - 1));
    for (const bool long_texts_only : {true, false})
        for (; total > limit; --total) {
            const size_t widest = widest_of(columns, widths, long_texts_only);
            if (widest == columns.size())
                break;
            --widths[widest];
        }
    return total <= limit;
}

std::string line_of(const table_row &row, const std::vector<table_column> &columns,
                    const std::vector<size_t> &widths, const output_style &style)
{
    std::string line;
    for (size_t at = 0; at < row.cells.size(); ++at) {
        line += at == 0 ? "" : gap;
        line += padded(shortened(shown(row.cells[at]), widths[at], style), widths[at],
                       columns[at].right);
    }
    return coloured(trimmed(line), row.bad, style) + '\n';
}

} // namespace

std::string table_text(const std::vector<table_column> &columns, const table_rows &rows,
                       const output_style &style)
{
    std::vector<size_t> widths = natural_widths(columns, rows);
    if (!shrink(widths, columns, style.width))
        return sheets_text(columns, rows, style);
    table_row titles;
    for (const table_column &column : columns)
        titles.cells.push_back(column.title);
    std::string text = style.headings ? line_of(titles, columns, widths, style) : "";
    for (size_t number = 0; number < rows.count; ++number) {
        const table_row row = rows.row(number);
        text += text.empty() || row.above.empty() ? "" : "\n";
        text += row.above + line_of(row, columns, widths, style);
    }
    return text;
}

std::string sheets_text(const std::vector<table_column> &columns, const table_rows &rows,
                        const output_style &style)
{
    size_t width = 0;
    for (const table_column &column : columns)
        width = std::max(width, display_width(column.title));
    const size_t room = std::max(style.width, width + gap.size() + least_width);
    std::string text;
    for (size_t number = 0; number < rows.count; ++number) {
        const table_row row = rows.row(number);
        text += (text.empty() ? "" : "\n") + row.above;
        for (size_t at = 0; at < columns.size(); ++at) {
            const std::string title = padded(columns[at].title, width) + std::string(gap);
            const std::string value = shortened(shown(row.cells[at]), room - title.size(), style);
            text += coloured(title + value, row.bad, style) + '\n';
        }
    }
    return text;
}

} // namespace ctl
