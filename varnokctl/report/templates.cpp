#include "varnokctl/report/templates.h"

#include <map>
#include <stdexcept>

namespace ctl
{

std::string filled(const char *text, const page_data &data)
{
    using kainjow::mustache::mustache;
    static std::map<const char *, mustache> parsed;
    mustache &page = parsed.try_emplace(text, text).first->second;
    std::string result;
    page.render(data, [&result](const std::string &part) { result += part; });
    if (!page.is_valid())
        throw std::logic_error(page.error_message());
    return result;
}

} // namespace ctl
