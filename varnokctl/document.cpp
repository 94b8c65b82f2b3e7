#include "varnokctl/document.h"

#include <algorithm>

#include <fmt/format.h>

namespace ctl
{
namespace
{

json optional_number(const std::optional<uint32_t> &number)
{
    return number ? json(*number) : json();
}

json failure_object(const failed_call &failure)
{
    const failure_advice advice = advice_on(failure);
    return {{"call", call_text(failure.call)},
            {"port", optional_number(failure.port)},
            {"target", optional_number(failure.target)},
            {"status", failure.status},
            {"name", advice.name},
            {"meaning", advice.meaning},
            {"next", advice.next}};
}

// A document is the same in every locale.
json record_object(const record_kind &kind, const listed_record &item)
{
    const output_style style = {.utf8 = true};
    json object = json::object();
    for (const record_field &field : kind.fields)
        if (field.key != nullptr)
            object[field.key] = field.value(item, style).value;
    return object;
}

json target_object(const target_entry &target, const port_entry &port)
{
    const uint32_t number = target.info.ScsiTgtNum;
    json object = record_object(target_kind, {.port = port.instance, .target = &target.info});
    const session_entry *session = session_of(port, number);
    object["session"] =
        session == nullptr
            ? json()
            : record_object(session_kind, {.port = port.instance, .session = session});
    object["luns"] = json::array();
    for (const VARNOK_LUN_INFO &lun : target.luns)
        object["luns"].push_back(
            record_object(lun_kind, {.port = port.instance, .target = &target.info, .lun = &lun}));
    return object;
}

// A port that could not be read has its number and the empty rest.
json port_object(const port_entry &port)
{
    json object = {{"port", port.instance}, {"readable", port.info.has_value()}};
    if (port.info)
        object.update(record_object(port_kind, {.port = port.instance, .info = &*port.info}));
    object["portal"] =
        port.portal ? record_object(portal_kind, {.port = port.instance, .portal = &*port.portal})
                    : json();
    object["targets"] = json::array();
    for (const target_entry &target : port.targets)
        object["targets"].push_back(target_object(target, port));
    return object;
}

} // namespace

json new_document(const char *command)
{
    return {{"schema", "varnok/1"}, {"command", command}, {"complete", true}};
}

json listing_document(const inventory &host, const record_kind &kind)
{
    json document = new_document(kind.key);
    document[kind.key] = json::array();
    for (const listed_record &item : kind.items(host))
        document[kind.key].push_back(record_object(kind, item));
    finish(document, host.failures);
    return document;
}

json tree_document(const inventory &host)
{
    json document = new_document("tree");
    document["ports"] = json::array();
    for (const port_entry &port : host.ports)
        document["ports"].push_back(port_object(port));
    finish(document, host.failures);
    return document;
}

json version_document(const char *tool_version)
{
    const uint32_t number = VARNOK_GetVersion(nullptr, 0);
    json document = new_document("version");
    document["tool"] = tool_version;
    document["library"] = {
        {"description", varnok_version_description},
        {"number", number},
        {"text", fmt::format("{}.{}.{}", number >> 24, number >> 16 & 0xFFU, number >> 8 & 0xFFU)}};
    finish(document, {});
    return document;
}

std::string safe_text(std::string_view text)
{
    return field_text({reinterpret_cast<const uint8_t *>(text.data()), text.size()}, {});
}

json usage_document(std::string_view what_is_wrong)
{
    json document = new_document("usage");
    document["complete"] = false;
    document["failures"] = json::array({{{"call", "varnokctl"},
                                         {"port", nullptr},
                                         {"target", nullptr},
                                         {"status", 0},
                                         {"name", "wrong usage"},
                                         {"meaning", safe_text(what_is_wrong)},
                                         {"next", "see 'varnokctl --help'"}}});
    return document;
}

void finish(json &document, const std::vector<failed_call> &failures)
{
    document["complete"] = failures.empty();
    document["failures"] = json::array();
    for (const failed_call &failure : failures)
        document["failures"].push_back(failure_object(failure));
}

std::string document_text(const json &document, bool ascii)
{
    return document.dump(2, ' ', ascii) + '\n';
}

} // namespace ctl
