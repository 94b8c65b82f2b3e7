// Captures that anybody may have written: alone on a page, and compared with the host before.
#include "varnokctl/captured_host.h"

#include "platform.h"
#include "varnokctl/capture_diff.h"
#include "varnokctl/report/report.h"

#include <algorithm>

namespace
{

size_t count(const std::string &text, std::string_view word)
{
    size_t found = 0;
    for (size_t at = text.find(word); at != std::string::npos; at = text.find(word, at + 1))
        ++found;
    return found;
}

// Names stay text: the page has its own elements alone, and nothing that turns a line round.
void check(const std::string &page)
{
    REQUIRE(count(page, "<script") == 1 && count(page, "<style") == 1 && count(page, "<img") == 0);
    REQUIRE(count(page, std::string{'\xE2', '\x80', '\xAE'}) == 0);
    REQUIRE(std::ranges::all_of(page, [](char c) { return c == '\n' || c < 0 || c >= ' '; }));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    ctl::capture_json document;
    ctl::inventory host;
    try {
        document = ctl::parse_capture({reinterpret_cast<const char *>(data), size});
        host = ctl::host_of(document);
    } catch (const ctl::capture_error &) {
        return 0;
    }
    ctl::capture_json before = document;
    if (!before["ports"].empty())
        before["ports"].erase(0);
    ctl::report_contents contents = {.title = "host"};
    for (const ctl::capture_json *other : {&document, &before})
        contents.hosts.push_back(ctl::reported(
            host, {.id = "h1",
                   .name = "host",
                   .before = "before",
                   .changes = ctl::compare_captures(
                       *other, document, {.numbers = true, .output = ctl::page_style})}));
    std::string page;
    ctl::write_page(contents, [&page](const std::string &part) { page += part; });
    check(page);
    return 0;
}
