// Scenario documents. What the simulated host accepts goes through the library to a captured
// document, and the host that this describes must be captured as the same document again.
#include "machine.h"
#include "platform.h"
#include "varnokctl/capture.h"
#include "varnokctl/captured_host.h"
#include "varnokctl/document.h"
#include "varnokctl/inventory.h"
#include "varnokctl/render.h"
#include "varnokctl/report/report.h"

#include <algorithm>

namespace
{

// Whether a run on it stays short, and within this process.
bool is_small(const hostsim::scenario &host)
{
    constexpr size_t most_commands = 64;
    size_t commands = 0;
    for (const hostsim::port &port : host.ports) {
        ++commands;
        if (!port.described->portal.empty())
            return false;
        for (const hostsim::session_description &session : port.described->sessions)
            if ((commands += session.copies * (1 + session.luns->entries.size())) > most_commands)
                return false;
        if (commands > most_commands)
            return false;
    }
    return true;
}

// Lines of plain characters, whatever the devices say.
void show(const ctl::inventory &seen)
{
    const ctl::output_style style = {.bytes = true, .details = true};
    const auto plain = [](const std::string &text) {
        return std::ranges::all_of(text,
                                   [](char c) { return c == '\n' || (c >= ' ' && c < 0x7F); });
    };
    REQUIRE(plain(ctl::tree_text(seen, style)) && plain(ctl::dot_text(seen, style)));
    for (const ctl::record_kind *kind : {&ctl::port_kind, &ctl::portal_kind, &ctl::session_kind,
                                         &ctl::target_kind, &ctl::lun_kind})
        REQUIRE(plain(ctl::listing_text(seen, *kind, style)));
    REQUIRE(plain(ctl::tree_document(seen, true)));
}

std::string capture(hostsim::host &host, bool &complete)
{
    hostsim::install(&host);
    const ctl::inventory seen = ctl::read_host(
        {.needs = ctl::need_portals | ctl::need_sessions | ctl::need_all_designators});
    platform::free_library();
    hostsim::install(nullptr);
    complete = seen.failures.empty();
    show(seen);
    std::string document = ctl::capture_document(seen, false);
    // A host and its capture have the same page.
    if (complete)
        REQUIRE(ctl::reported(seen, {}).section ==
                ctl::reported(ctl::host_of(ctl::parse_capture(document)), {}).section);
    return document;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    std::unique_ptr<hostsim::host> host;
    try {
        host = hostsim::host::from_text({reinterpret_cast<const char *>(data), size}, "/nowhere");
    } catch (const hostsim::scenario_error &) {
        return 0;
    }
    if (!is_small(static_cast<hostsim::machine &>(*host).description()))
        return 0;
    bool complete = false;
    const std::string first = capture(*host, complete);
    const std::unique_ptr<hostsim::host> again = hostsim::host::from_text(first);
    // What could not be read is not in the document, and its like fails in another way.
    if (complete)
        REQUIRE(capture(*again, complete) == first && complete);
    return 0;
}
