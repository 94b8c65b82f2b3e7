#include "varnokctl/render.h"

#include "varnokctl/table.h"

#include <algorithm>
#include <fmt/format.h>
#include <string_view>

namespace ctl
{
namespace
{

bool shows(const record_field &field, const output_style &style)
{
    return style.details || field.where == view::table ||
           (field.where == view::bytes && style.bytes) ||
           (field.where == view::identity && style.identity);
}

std::vector<const record_field *> columns_of(const record_kind &kind, const output_style &style,
                                             const selection &chosen)
{
    std::vector<const record_field *> columns = chosen.columns;
    if (columns.empty())
        for (const record_field &field : kind.fields)
            if (shows(field, style))
                columns.push_back(&field);
    return columns;
}

// A record of what could not be read has its numbers, and says so in the first column of text.
table_row failed_row(const std::vector<const record_field *> &columns, const listed_record &record)
{
    table_row row{{}, true};
    bool said = false;
    for (const record_field *field : columns) {
        const std::string_view key = field->key;
        const bool says = !said && field->shape != look::number;
        said = said || says;
        const bool is_target = key == "target" && record.target != nullptr;
        row.cells.push_back(key == "port" ? fmt::to_string(record.port)
                            : is_target   ? fmt::to_string(+record.target->ScsiTgtNum)
                            : says        ? record.failed
                                          : "");
    }
    return row;
}

// Ports and targets whose records of this kind could not be read.
void add_failed(const inventory &host, const record_kind &kind, std::vector<listed_record> &records)
{
    for (const port_entry &port : host.ports) {
        const bool lists_targets = &kind == &target_kind || &kind == &lun_kind;
        if (!port.info || (lists_targets && port.targets_unread) ||
            (&kind == &session_kind && port.sessions_unread))
            records.push_back({.port = port.instance, .failed = "not readable"});
        for (const target_entry &target : port.targets)
            if (&kind == &lun_kind && target.luns.empty() &&
                (!target.is_counted || target.info.LunCount != 0))
                records.push_back(
                    {.port = port.instance, .failed = "not readable", .target = &target.info});
    }
}

} // namespace

std::string listing_text(const inventory &host, const record_kind &kind, const output_style &style,
                         const selection &chosen)
{
    std::vector<listed_record> records = records_of(host, kind);
    add_failed(host, kind, records);
    if (records.empty())
        return host.failures.empty() ? fmt::format("no {}\n", kind.plural) : "";
    std::ranges::stable_sort(records, {}, [](const listed_record &record) {
        const uint32_t target = record.target != nullptr ? +record.target->ScsiTgtNum : 0;
        return std::pair(record.port, target);
    });
    sort_records(records, chosen);

    const auto fields = columns_of(kind, style, chosen);
    std::vector<table_column> columns;
    columns.reserve(fields.size());
    for (const record_field *field : fields)
        columns.push_back(
            {field->title, field->shape == look::number, field->shape == look::long_text});
    const table_rows rows = {records.size(), [&](size_t number) {
                                 const listed_record &record = records[number];
                                 if (record.failed != nullptr)
                                     return failed_row(fields, record);
                                 table_row row;
                                 row.bad = kind.is_bad != nullptr && kind.is_bad(record);
                                 for (const record_field *field : fields)
                                     row.cells.push_back(text_of(*field, record, style));
                                 return row;
                             }};
    return style.details && chosen.columns.empty() ? sheets_text(columns, rows, style)
                                                   : table_text(columns, rows, style);
}

} // namespace ctl
