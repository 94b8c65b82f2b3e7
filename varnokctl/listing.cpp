#include "varnokctl/render.h"

#include "varnokctl/table.h"

#include <fmt/format.h>

namespace ctl
{
namespace
{

bool shows(const record_field &field, const output_style &style)
{
    return style.details || field.where == view::table ||
           (field.where == view::bytes && style.bytes);
}

} // namespace

std::string listing_text(const inventory &host, const record_kind &kind, const output_style &style)
{
    const std::vector<listed_record> records = records_of(host, kind);
    if (records.empty())
        return host.failures.empty() ? fmt::format("no {}\n", kind.plural) : "";
    std::vector<table_column> columns;
    std::vector<table_row> rows(records.size());
    for (const record_field &field : kind.fields) {
        if (!shows(field, style))
            continue;
        columns.push_back(
            {field.title, field.shape == look::number, field.shape == look::long_text});
        for (size_t at = 0; at < rows.size(); ++at)
            rows[at].push_back(text_of(field, records[at], style));
    }
    return style.details ? sheets_text(columns, rows) : table_text(columns, rows, style);
}

} // namespace ctl
