#include "varnokctl/json.h"

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
            {"lun", failure.lun ? lun_value(*failure.lun).data : json()},
            {"status", failure.status},
            {"name", advice.name},
            {"meaning", advice.meaning},
            {"next", advice.next}};
}

} // namespace

field_value same(const std::string &text) { return {text, text}; }

json or_null(const std::string &text) { return text.empty() ? json() : json(text); }

field_value coded_value(uint64_t code, const std::string &word)
{
    return {word, {{"code", code}, {"text", or_null(word)}}};
}

field_value lun_value(const lun_levels &lun)
{
    const lun_form form = lun_form_of(lun);
    const bool exact = form.number && *form.number <= largest_exact_number;
    const std::string words = lun_number(lun);
    return {words,
            {{"text", words},
             {"method", form.method},
             {"number", exact ? json(*form.number) : json()},
             {"raw", lun_bytes(lun)}}};
}

json new_document(const char *command)
{
    return {{"schema", "varnok/1"}, {"command", command}, {"complete", true}};
}

std::string finished_text(json &document, const std::vector<failed_call> &failures, bool ascii)
{
    document["complete"] = failures.empty();
    document["failures"] = json::array();
    for (const failed_call &failure : failures)
        document["failures"].push_back(failure_object(failure));
    return document.dump(2, ' ', ascii) + '\n';
}

} // namespace ctl
