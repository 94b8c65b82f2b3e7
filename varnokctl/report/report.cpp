#include "varnokctl/report/report.h"

#include "varnokctl/captured_host.h"
#include "varnokctl/health_against.h"
#include "varnokctl/inventory.h"
#include "varnokctl/progress.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <ctime>
#include <filesystem>
#include <fmt/chrono.h>
#include <fmt/format.h>
#include <map>
#include <sys/utsname.h>
#include <system_error>
#include <utility>

namespace ctl
{
namespace
{

std::string page_text(const std::string &text)
{
    return field_text({reinterpret_cast<const uint8_t *>(text.data()), text.size()}, page_style);
}

// "host" for folder/host.json
std::string name_of_capture(const std::string &path)
{
    if (path == "-")
        return "standard input";
    std::filesystem::path name = std::filesystem::path(path).filename();
    if (name.extension() == ".json")
        name.replace_extension();
    return page_text(name.string());
}

// What tells a host from others: its ports, by their MAC addresses or by their adapters.
std::vector<std::string> ports_of(const inventory &host)
{
    std::vector<std::string> ports;
    for (const port_entry &port : host.ports) {
        if (!port.info)
            continue;
        const auto &info = *port.info;
        if (std::ranges::count(info.MAC, 0) != std::ssize(info.MAC))
            ports.push_back(hex_bytes(info.MAC, ":"));
        else if (const std::string serial = field_text(info.SerialNum, page_style); !serial.empty())
            ports.push_back(
                fmt::format("{} {} {}", serial, +info.PciFunctionNum, +info.PhyPortNum));
    }
    std::ranges::sort(ports);
    ports.erase(std::unique(ports.begin(), ports.end()), ports.end());
    return ports;
}

// ---- Captures ---------------------------------------------------------------------------------

bool can_be_read_again(const std::string &path)
{
    std::error_code why;
    return path != "-" && std::filesystem::is_regular_file(path, why);
}

struct read_capture {
    std::string path;
    std::string name;
    std::string text; // of a pipe, which cannot be read again
    size_t ports = 0; // by which it is known
    bool superseded = false;
};

class capture_reader
{
  public:
    explicit capture_reader(const report_options &options)
        : options_(options), line_(options.quiet ? progress::none() : progress(stderr))
    {
    }

    report_run read()
    {
        std::map<std::string, size_t> names;
        for (const std::string &path : options_.captures) {
            std::string name = name_of_capture(path);
            if (const size_t same = ++names[name]; same > 1)
                name += fmt::format(" ({})", same);
            line_.show(fmt::format("varnokctl: {} of {} captures read", sources_.size(),
                                   options_.captures.size()));
            read_one(path, name);
        }
        for (size_t at = 0; at < sources_.size(); ++at)
            if (!sources_[at].superseded)
                run_.contents.hosts.push_back(std::move(hosts_[at]));
        run_.contents.title = run_.contents.hosts.size() == 1
                                  ? run_.contents.hosts.front().name
                                  : counted(run_.contents.hosts.size(), "host");
        run_.contents.source = "from ";
        if (sources_.size() != options_.captures.size())
            run_.contents.source += fmt::format("{} of ", sources_.size());
        run_.contents.source += counted(options_.captures.size(), "capture");
        const bool any = !run_.contents.hosts.empty();
        run_.status = !any ? refused : run_.complaints.empty() ? all_well : partial;
        return std::move(run_);
    }

  private:
    void read_one(const std::string &path, const std::string &name)
    try {
        reading_ = path;
        std::string text = capture_text(path);
        const capture_json document = parse_capture(text);
        if (document["ports"].empty() && !document["complete"].get<bool>())
            throw capture_error("nothing could be read when the host was captured");
        const inventory host = host_of(document);
        const std::vector<std::string> ports = ports_of(host);
        host_caption caption = {.id = fmt::format("h{}", sources_.size() + 1),
                                .name = name,
                                .open = options_.captures.size() <= 3};
        if (const auto before = capture_before(ports))
            compare(*before, document, caption);
        for (const std::string &port : ports)
            known_[port] = sources_.size();
        hosts_.push_back(reported(host, std::move(caption)));
        sources_.push_back(
            {path, name, can_be_read_again(path) ? "" : std::move(text), ports.size()});
        if (!host.failures.empty())
            run_.complaints.push_back(fmt::format(
                "{}: {} when the host was captured; the page lists what", shown_name(path),
                host.failures.size() == 1
                    ? "1 part could not be read"
                    : fmt::format("{} parts could not be read", host.failures.size())));
    } catch (const capture_error &error) {
        fail(failure_cause::no_capture, error.what(), VARNOK_STATUS_SUCCESS);
    } catch (const std::system_error &error) {
        fail(failure_cause::file_not_read, error.code().message(),
             static_cast<uint32_t>(error.code().value()));
    }

    static std::string shown_name(const std::string &path)
    {
        return path == "-" ? "standard input" : safe_text(path);
    }

    void fail(failure_cause cause, const std::string &why, uint32_t status)
    {
        const failed_call failure = {
            .call = call_name::read_file,
            .cause = cause,
            .status = status,
            .detail = fmt::format("{}: {}", shown_name(reading_), safe_text(why))};
        run_.contents.missing.push_back(failure);
        run_.complaints.push_back(failure_text(failure, !options_.quiet));
    }

    // The same host has at least half of the ports of the one that has fewer.
    std::optional<size_t> capture_before(const std::vector<std::string> &ports) const
    {
        std::map<size_t, size_t> shared;
        for (const std::string &port : ports)
            if (const auto found = known_.find(port); found != known_.end())
                ++shared[found->second];
        const auto most =
            std::ranges::max_element(shared, {}, [](const auto &entry) { return entry.second; });
        const auto is_enough = [&](const auto &entry) {
            return !sources_[entry.first].superseded &&
                   2 * entry.second >= std::min(ports.size(), sources_[entry.first].ports);
        };
        return most != shared.end() && is_enough(*most) ? std::optional(most->first) : std::nullopt;
    }

    void compare(size_t before, const capture_json &document, host_caption &caption)
    {
        read_capture &source = sources_[before];
        const std::string after = std::exchange(reading_, source.path);
        caption.before = source.name;
        caption.changes = compare_captures(
            parse_capture(source.text.empty() ? capture_text(source.path) : source.text), document,
            {.numbers = false, .output = page_style});
        source.superseded = true;
        reading_ = after;
        hosts_[before] = {};
    }

    const report_options &options_;
    progress line_;
    report_run run_;
    std::string reading_; // the file
    std::vector<read_capture> sources_;
    std::vector<reported_host> hosts_;    // one each
    std::map<std::string, size_t> known_; // captures, the latest by each port
};

// ---- This host --------------------------------------------------------------------------------

report_run read_this_host(bool quiet)
{
    constexpr unsigned whole_host = need_portals | need_sessions | need_identities;
    const inventory host = read_host({.needs = whole_host, .port = {}, .target = {}},
                                     quiet ? progress::none() : progress(stderr));
    report_run run = {.contents = {}, .complaints = {}, .status = ending_of(host)};
    for (const failed_call &failure : host.failures)
        run.complaints.push_back(failure_text(failure));
    if (host.ports.empty() && !host.failures.empty())
        return run;
    utsname names{};
    uname(&names);
    run.contents.title = page_text(names.nodename);
    run.contents.source = "from the host itself";
    run.contents.hosts.push_back(reported(host, {.id = "h1", .name = run.contents.title}));
    return run;
}

} // namespace

reported_host reported(const inventory &host, host_caption caption)
{
    const examined_host examined(host, page_style,
                                 caption.changes ? lost_in(*caption.changes) : lost_parts());
    const health_report report = judge(examined, {});
    constexpr size_t most_at_once = 200;
    caption.open = caption.open && examined.devices.size() <= most_at_once;
    reported_host result = {.id = caption.id,
                            .name = caption.name,
                            .status = report.status,
                            .critical = count_of(report, health_status::critical),
                            .warnings = count_of(report, health_status::warning),
                            .findings = {},
                            .unjudged = {},
                            .totals = totals_of(examined),
                            .changes = {},
                            .section = host_section(examined, report, caption)};
    for (const auto &[rule, findings] : report.judged)
        for (const finding &found : findings)
            result.findings.push_back({rule, found.what});
    for (const failed_call &failure : report.unjudged)
        result.unjudged.push_back(failure_text(failure));
    if (host.ports.empty())
        result.unjudged.emplace_back("no adapters found");
    if (caption.changes) {
        const auto &[differences, unread_before, unread_after] = *caption.changes;
        const bool whole = unread_before.empty() && unread_after.empty();
        result.changes = fmt::format("{} since {}{}", counted(differences.size(), "change"),
                                     caption.before, whole ? "" : "; not all was compared");
    }
    return result;
}

CLI::App *add_report(CLI::App &app, report_options &options)
{
    CLI::App *sub =
        app.add_subcommand("report", "Write a page to look at, of this host or of captures");
    sub->footer(
        "Write it to a file, and open that with a browser: varnokctl report >report.html\n"
        "Of several captures of one host the page shows the last, and what changed.\n\n"
        "Exit status: 0 for a whole page, 3 for one that lacks what could not be read, 1 if there\n"
        "is no host to show, 2 for wrong usage, 4 if the library could not be loaded.");
    sub->add_option("CAPTURE", options.captures,
                    "What 'varnokctl capture' printed; - for standard input; none for this host");
    sub->final_callback([&options] {
        if (std::ranges::count(options.captures, "-") > 1)
            throw CLI::ValidationError("CAPTURE", "standard input can be read only once");
    });
    return sub;
}

report_run run_report(const report_options &options)
{
    report_run run =
        options.captures.empty() ? read_this_host(options.quiet) : capture_reader(options).read();
    run.contents.made = fmt::format("made {:%Y-%m-%d %H:%M} UTC", fmt::gmtime(std::time(nullptr)));
    return run;
}

} // namespace ctl
