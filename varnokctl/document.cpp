#include "varnokctl/document.h"

#include "varnokctl/json.h"

#include <fmt/format.h>

namespace ctl
{
namespace
{

json record_object(const record_kind &kind, const listed_record &record)
{
    const output_style style = {.utf8 = true};
    json object = json::object();
    json identity; // null when it was not read
    for (const record_field &field : kind.fields)
        if (field.of_identity && record.identity != nullptr)
            identity[field.key] = field.value(record, style).data;
        else if (field.in_document && !field.of_identity)
            object[field.key] = field.value(record, style).data;
    if (record.lun != nullptr)
        object["identity"] = identity;
    return object;
}

json target_object(const target_entry &target, uint32_t port, const session_entry *session)
{
    json object = record_object(
        target_kind, {.port = port, .target = &target.info, .is_counted = target.is_counted});
    object["session"] = session == nullptr
                            ? json()
                            : record_object(session_kind, {.port = port, .session = session});
    object["luns"] = json::array();
    for (const lun_entry &lun : target.luns)
        object["luns"].push_back(record_object(lun_kind, record_of(lun, target, port)));
    return object;
}

// A port that could not be read has its number, no portal and no targets.
json port_object(const port_entry &port)
{
    const uint32_t number = port.instance;
    json object = {{"port", number}, {"readable", port.info.has_value()}};
    if (port.info)
        object.update(record_object(port_kind, {.port = number, .info = &*port.info}));
    object["portal"] = port.portal
                           ? record_object(portal_kind, {.port = number, .portal = &*port.portal})
                           : json();
    object["targets"] = json::array();
    for (const target_entry &target : port.targets)
        object["targets"].push_back(
            target_object(target, number, session_of(port, target.info.ScsiTgtNum)));
    return object;
}

} // namespace

std::string listing_document(const inventory &host, const record_kind &kind, bool ascii,
                             const selection &chosen)
{
    json document = new_document(kind.key);
    document[kind.key] = json::array();
    std::vector<listed_record> records = records_of(host, kind);
    sort_records(records, chosen);
    for (const listed_record &record : records)
        document[kind.key].push_back(record_object(kind, record));
    return finished_text(document, host.failures, ascii);
}

std::string tree_document(const inventory &host, bool ascii)
{
    json document = new_document("tree");
    document["ports"] = json::array();
    for (const port_entry &port : host.ports)
        document["ports"].push_back(port_object(port));
    return finished_text(document, host.failures, ascii);
}

std::string version_document(const char *tool_version, bool ascii)
{
    const uint32_t number = VARNOK_GetVersion(nullptr, 0);
    json document = new_document("version");
    document["tool"] = tool_version;
    document["library"] = {
        {"description", varnok_version_description},
        {"number", number},
        {"text", fmt::format("{}.{}.{}", number >> 24, number >> 16 & 0xFFU, number >> 8 & 0xFFU)}};
    return finished_text(document, {}, ascii);
}

std::string usage_document(const std::string &what_is_wrong, bool ascii)
{
    json document = new_document("usage");
    const failed_call failure = {.call = call_name::command_line,
                                 .cause = failure_cause::wrong_usage,
                                 .detail = what_is_wrong};
    return finished_text(document, {failure}, ascii);
}

} // namespace ctl
