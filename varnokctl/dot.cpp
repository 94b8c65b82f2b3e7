// The host as a picture, in Graphviz's language.
#include "render.h"

#include <algorithm>

#include <fmt/format.h>

#include "facts.h"
#include "words.h"

namespace ctl
{
namespace
{

struct look {
    const char *fill, *line, *text;
    bool dashed;
};

constexpr look host_look = {"#e8eaf0", "#9aa3b5", "#1f2933", false};
constexpr look port_look = {"#e1edf8", "#7ea6cc", "#1f2933", false};
constexpr look target_look = {"#e3f2e9", "#85b79c", "#1f2933", false};
constexpr look luns_look = {"#ffffff", "#b8c2cc", "#1f2933", false};
constexpr look offline_look = {"#f4f5f7", "#a3abb5", "#6b7683", true};
constexpr look failed_look = {"#fcebe8", "#cf8a80", "#7d3a31", true};

constexpr const char *beginning = R"(digraph host {
  graph [rankdir=LR, ranksep=0.55, nodesep=0.2, pad=0.2, bgcolor="#ffffff"]
  node [shape=box, margin="0.1,0.05", penwidth=1.2, fontname="Helvetica,Arial,sans-serif", fontsize=11]
  edge [arrowhead=none, tailport=e, headport=w, color="#9aa5b1", penwidth=1.2]
)";

// Labels are marked up as HTML is. What they hold is escaped here, so it never ends one.
std::string marked_up(std::string_view text)
{
    std::string result;
    for (const char c : text) {
        switch (c) {
        case '&':
            result += "&amp;";
            break;
        case '<':
            result += "&lt;";
            break;
        case '>':
            result += "&gt;";
            break;
        case '"':
            result += "&quot;";
            break;
        default:
            result += c;
        }
    }
    return result;
}

constexpr const char *row_begins = "\n    <tr>";
constexpr const char *row_ends = "</tr>";

std::string table(unsigned padding, const std::string &rows)
{
    return fmt::format(R"(<table border="0" cellborder="0" cellspacing="0" cellpadding="{}">)"
                       "{}</table>",
                       padding, rows);
}

std::string table_cell(const char *alignment, const std::string &content)
{
    return fmt::format(R"(<td align="{}">{}</td>)", alignment, content);
}

std::string joined(const std::vector<std::string> &facts)
{
    std::string text;
    for (const std::string &fact : facts)
        if (!fact.empty())
            text += (text.empty() ? "" : ", ") + fact;
    return text;
}

// Empty lines are left out.
std::string box_label(const std::string &title, const std::vector<std::string> &lines)
{
    const auto row = [](const std::string &content) {
        return row_begins + table_cell("left", content) + row_ends;
    };
    std::string rows = row("<b>" + marked_up(title) + "</b>");
    for (const std::string &line : lines)
        if (!line.empty())
            rows += row(marked_up(line));
    return table(2, rows);
}

std::string luns_label(const target &target, const style &style)
{
    constexpr const char *alignments[] = {"right", "left", "right", "left"}; // of the facts
    std::string rows;
    for (const VARNOK_LUN_INFO &lun : target.luns) {
        const char *const *alignment = alignments;
        rows += row_begins;
        for (const std::string &fact : lun_facts(lun, style))
            rows += table_cell(*alignment++, marked_up(fact));
        rows += row_ends;
    }
    return table(3, rows);
}

bool failed(const host &host, uint32_t port, std::optional<uint32_t> target)
{
    return std::ranges::any_of(host.failures, [&](const failure &failure) {
        return failure.port == port && failure.target == target;
    });
}

class drawing
{
  public:
    explicit drawing(const style &style) : style_(style) {}

    void draw(const host &host)
    {
        add("host", host_look, box_label("Host", host_facts(host)));
        for (const port &port : host.ports)
            draw(host, port);
    }

    std::string text() const { return beginning + text_ + "}\n"; }

  private:
    void draw(const host &host, const port &port)
    {
        const std::string name = fmt::format("port{}", port.instance);
        const std::string title = fmt::format("Port {}", port.instance);
        const bool broken = failed(host, port.instance, {});
        if (!port.info) {
            add(name, failed_look, box_label(title, {"not readable"}), "host");
            return;
        }
        const VARNOK_PHY_PORT_INFO &info = *port.info;
        std::vector<std::string> lines = {
            field_text(info.ModelName, style_),
            joined({port_speed(info.PortSpeed), port_state(info.PortState)})};
        if (port.portal) {
            lines.push_back(ip_address(port.portal->IPv4Addr));
            lines.push_back(ip_address(port.portal->IPv6Addr));
        }
        const bool online = info.PortState == VARNOK_PORT_STATE_0;
        add(name,
            broken   ? failed_look
            : online ? port_look
                     : offline_look,
            box_label(title + "  " + field_text(info.HbaName, style_), lines), "host");
        for (size_t place = 0; place < port.targets.size(); place++)
            draw(host, port, place);
    }

    void draw(const host &host, const port &port, size_t place)
    {
        const target &target = port.targets[place];
        const uint32_t number = target.info.ScsiTgtNum;
        const std::string of_port = fmt::format("port{}", port.instance);
        const std::string name = fmt::format("{}_target{}", of_port, place);
        add(name, failed(host, port.instance, number) ? failed_look : target_look,
            box_label(
                fmt::format("Target {}", number),
                {field_text(target.info.TargetName, style_),
                 joined({target_address(port, target), counted(target.info.LunCount, "LUN")})}),
            of_port);
        if (!target.luns.empty())
            add(name + "_luns", luns_look, luns_label(target, style_), name);
    }

    void add(const std::string &name, const look &look, const std::string &label,
             const std::string &parent = "")
    {
        text_ +=
            fmt::format("  {} [style=\"rounded,filled{}\", fillcolor=\"{}\", color=\"{}\", "
                        "fontcolor=\"{}\",\n    label=<{}>]\n",
                        name, look.dashed ? ",dashed" : "", look.fill, look.line, look.text, label);
        if (!parent.empty())
            text_ += fmt::format("  {} -> {}\n", parent, name);
    }

    const style &style_;
    std::string text_;
};

} // namespace

std::string dot_text(const host &host, const style &style)
{
    drawing drawing(style);
    drawing.draw(host);
    return drawing.text();
}

} // namespace ctl
