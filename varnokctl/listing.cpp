#include "varnokctl/render.h"

#include <fmt/format.h>

#include "varnokctl/table.h"

namespace ctl
{
namespace
{

bool shows(const field &field, const style &style)
{
    return style.details || field.where == in::table || (field.where == in::bytes && style.bytes);
}

} // namespace

std::string listing_text(const host &host, const kind &kind, const style &style)
{
    const std::vector<item> items = kind.items(host);
    if (items.empty())
        return host.failures.empty() ? fmt::format("no {}\n", kind.plural) : "";
    std::vector<column> columns;
    std::vector<row> rows(items.size());
    for (const field &field : kind.fields) {
        if (!shows(field, style))
            continue;
        columns.push_back(
            {field.title, field.shape == look::number, field.shape == look::long_text});
        for (size_t at = 0; at < rows.size(); at++)
            rows[at].push_back(field.value(items[at], style).text);
    }
    return style.details ? sheets_text(columns, rows) : table_text(columns, rows, style);
}

} // namespace ctl
