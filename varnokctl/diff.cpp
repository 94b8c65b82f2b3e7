#include "varnokctl/diff.h"

#include "varnokctl/capture.h"
#include "varnokctl/capture_diff.h"
#include "varnokctl/inventory.h"

#include <fmt/format.h>
#include <iterator>
#include <optional>
#include <utility>

namespace ctl
{
namespace
{

constexpr ending same_status = all_well, differs = refused, trouble = usage;

// Either a comparison, or failures that left nothing to compare.
struct diff_run {
    std::string before, after; // their names; the second is empty for this host
    std::vector<failed_call> failures;
    std::optional<capture_comparison> comparison;

    bool is_whole() const
    {
        return comparison && comparison->unread_before.empty() && comparison->unread_after.empty();
    }

    ending status() const
    {
        if (!comparison)
            return trouble;
        return comparison->differences.empty() && is_whole() ? same_status : differs;
    }
};

std::string shown_name(const std::string &path)
{
    return path == "-" ? "standard input" : safe_text(path);
}

class diff_reader
{
  public:
    explicit diff_reader(const diff_options &options) : options_(options)
    {
        run_.before = shown_name(options.before);
        run_.after = options.after.empty() ? "" : shown_name(options.after);
    }

    diff_run read(const output_style &style)
    {
        const auto before = from_file(options_.before);
        const auto after = before && !options_.after.empty() ? from_file(options_.after)
                           : before                          ? from_this_host()
                                                             : std::nullopt;
        if (before && after)
            run_.comparison =
                compare_captures(*before, *after, {.numbers = options_.numbers, .output = style});
        return std::move(run_);
    }

  private:
    std::optional<capture_json> from_file(const std::string &path)
    try {
        capture_json document = parse_capture(capture_text(path));
        if (document["ports"].empty() && !document["complete"].get<bool>())
            throw capture_error("nothing could be read when the host was captured");
        return document;
    } catch (const capture_error &error) {
        fail(failure_cause::no_capture, path, error.what());
        return {};
    } catch (const std::system_error &error) {
        fail(failure_cause::file_not_read, path, error.code().message(),
             static_cast<uint32_t>(error.code().value()));
        return {};
    }

    void fail(failure_cause cause, const std::string &path, const std::string &why,
              uint32_t status = VARNOK_STATUS_SUCCESS)
    {
        run_.failures.push_back(
            {.call = call_name::read_file,
             .cause = cause,
             .status = status,
             .detail = fmt::format("{}: {}", shown_name(path), safe_text(why))});
    }

    std::optional<capture_json> from_this_host()
    {
        constexpr unsigned whole_host = need_portals | need_sessions | need_all_designators;
        const inventory host = read_host({.needs = whole_host, .port = {}, .target = {}});
        run_.failures = host.failures;
        if (host.ports.empty() && !host.failures.empty())
            return {};
        return parse_capture(capture_document(host, false));
    }

    const diff_options &options_;
    diff_run run_;
};

std::string line_of(const difference &entry, const output_style &style)
{
    const std::string line =
        entry.kind == change::changed
            ? fmt::format("{} {}: {} {} -> {}", entry.what, entry.name, entry.field,
                          entry.before.text, entry.after.text)
            : fmt::format("{} {}: {}", entry.what, entry.name, change_word(entry.kind));
    return coloured(line, entry.kind == change::gone, style) + '\n';
}

std::string notes_of(const diff_run &run)
{
    std::string notes;
    for (const failed_call &failure : run.failures)
        notes += fmt::format("varnokctl: {}\n", failure_text(failure));
    const auto add = [&](const std::string &name, const std::vector<unread_part> &parts) {
        for (const unread_part &part : parts)
            notes += fmt::format("varnokctl: not compared: {}: {}: {}\n",
                                 name.empty() ? "this host" : name, part.name, part.why);
    };
    if (run.comparison) {
        add(run.before, run.comparison->unread_before);
        add(run.after, run.comparison->unread_after);
    }
    return notes;
}

json entry_object(const difference &entry)
{
    return {{"kind", change_word(entry.kind)},
            {"what", entry.what},
            {"name", entry.name},
            {"field", or_null(entry.field)},
            {"before", entry.before.data},
            {"after", entry.after.data}};
}

void put_unread(json &list, const char *side, const std::vector<unread_part> &parts)
{
    for (const unread_part &part : parts)
        list.push_back({{"side", side}, {"name", part.name}, {"why", part.why}});
}

} // namespace

const char *const diff_help =
    "Exit status: 0 for no differences, 1 for differences or for parts that could not be\n"
    "compared, 2 for trouble: wrong usage, no capture, or nothing of this host can be read.";

diff_output run_diff(const diff_options &options, const output_style &style)
{
    const diff_run run = diff_reader(options).read(style);
    std::string text;
    if (run.comparison)
        for (const difference &entry : run.comparison->differences)
            text += line_of(entry, style);
    if (run.status() == same_status)
        text = "no differences\n";
    return {text, notes_of(run), run.status()};
}

diff_output run_diff_as_document(const diff_options &options, bool ascii)
{
    const diff_run run = diff_reader(options).read({.utf8 = true});
    json document = new_document("diff");
    document["before"] = run.before;
    document["after"] = or_null(run.after);
    json &entries = document["entries"] = json::array();
    json unread = json::array();
    if (run.comparison) {
        for (const difference &entry : run.comparison->differences)
            entries.push_back(entry_object(entry));
        put_unread(unread, "before", run.comparison->unread_before);
        put_unread(unread, "after", run.comparison->unread_after);
    }
    document["not_compared"] = unread;
    return {finished_text(document, run.failures, ascii), "", run.status()};
}

} // namespace ctl
