// The host as a picture, in the language of Graphviz.
#include "varnokctl/render.h"

#include "varnokctl/facts.h"
#include "varnokctl/words.h"

#include <algorithm>
#include <fmt/format.h>

namespace ctl
{
namespace
{

struct box_paint {
    const char *fill, *line, *text;
    bool dashed;
};

constexpr box_paint host_paint = {"#e8eaf0", "#9aa3b5", "#1f2933", false};
constexpr box_paint port_paint = {"#e1edf8", "#7ea6cc", "#1f2933", false};
constexpr box_paint target_paint = {"#e3f2e9", "#85b79c", "#1f2933", false};
constexpr box_paint luns_paint = {"#ffffff", "#b8c2cc", "#1f2933", false};
constexpr box_paint offline_paint = {"#f4f5f7", "#a3abb5", "#6b7683", true};
constexpr box_paint failed_paint = {"#fcebe8", "#cf8a80", "#7d3a31", true};

constexpr const char *beginning = R"(digraph host {
  graph [rankdir=LR, ranksep=0.55, nodesep=0.2, pad=0.2, bgcolor="#ffffff"]
  node [shape=box, margin="0.1,0.08", penwidth=1.2, fontname="Helvetica,Arial,sans-serif", fontsize=11]
  edge [arrowhead=none, tailport=e, headport=w, color="#9aa5b1", penwidth=1.2]
)";

constexpr const char *top = "host";
constexpr const char *long_edge = " [minlen=2]"; // room to go far up and down

// Labels are marked up like HTML. Names are escaped, so that none can end its label.
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

std::string luns_label(const target_entry &target, const output_style &style)
{
    constexpr size_t size_fact = 2;
    std::string rows;
    for (const lun_entry &lun : target.luns) {
        const std::vector<std::string> facts = lun_facts(lun, style);
        rows += row_begins;
        for (size_t at = 0; at < facts.size(); ++at)
            rows += table_cell(at == size_fact ? "right" : "left", marked_up(facts[at]));
        rows += row_ends;
    }
    return table(3, rows);
}

std::string port_title(const port_entry &port, const output_style &style)
{
    const std::string title = fmt::format("Port {}", port.instance);
    return port.info ? title + "  " + field_text(port.info->HbaName, style) : title;
}

std::vector<std::string> port_lines(const port_entry &port, const output_style &style)
{
    std::vector<std::string> lines;
    if (port.info)
        lines = {field_text(port.info->ModelName, style),
                 joined({port_speed(port.info->PortSpeed), port_state(port.info->PortState)})};
    if (port.portal) {
        lines.push_back(ip_address(port.portal->IPv4Addr));
        lines.push_back(ip_address(port.portal->IPv6Addr));
    }
    return lines;
}

std::vector<std::string> target_lines(const target_entry &target, const port_entry &port,
                                      const output_style &style)
{
    return {field_text(target.info.TargetName, style),
            joined({target_address(port, target), lun_count(target)})};
}

class drawing
{
  public:
    drawing(const inventory &host, const output_style &style) : host_(host), style_(style)
    {
        add(top, host_paint, box_label("Host", host_facts(host)));
        for (const port_entry &port : host.ports)
            add_port(port);
    }

    std::string text() const { return beginning + text_ + "}\n"; }

  private:
    void add_port(const port_entry &port)
    {
        const std::string name = fmt::format("port{}", port.instance);
        const bool online = port.info && port.info->PortState == VARNOK_PORT_STATE_0;
        const box_paint &paint = failed(port, {}) ? failed_paint
                                 : online         ? port_paint
                                                  : offline_paint;
        std::vector<std::string> lines = port_lines(port, style_);
        if (failed(port, {}))
            lines.emplace_back(port.info ? "not all readable" : "not readable");
        add(name, paint, box_label(port_title(port, style_), lines), top);
        for (size_t place = 0; place < port.targets.size(); ++place)
            add_target(port.targets[place], fmt::format("{}_target{}", name, place), port, name);
    }

    void add_target(const target_entry &target, const std::string &name, const port_entry &port,
                    const std::string &parent)
    {
        const uint32_t number = target.info.ScsiTgtNum;
        const bool broken = failed(port, number);
        std::vector<std::string> lines = target_lines(target, port, style_);
        if (broken)
            lines.emplace_back("not all readable");
        add(name, broken ? failed_paint : target_paint,
            box_label(fmt::format("Target {}", number), lines), parent);
        if (!target.luns.empty())
            add(name + "_luns", luns_paint, luns_label(target, style_), name);
    }

    bool failed(const port_entry &port, std::optional<uint32_t> target) const
    {
        return std::ranges::any_of(host_.failures, [&](const failed_call &failure) {
            return failure.port == port.instance && failure.target == target;
        });
    }

    void add(const std::string &name, const box_paint &paint, const std::string &label,
             const std::string &parent = "")
    {
        text_ += fmt::format(R"(  {} [style="rounded,filled{}", fillcolor="{}", color="{}", )"
                             "fontcolor=\"{}\",\n    label=<{}>]\n",
                             name, paint.dashed ? ",dashed" : "", paint.fill, paint.line,
                             paint.text, label);
        if (!parent.empty())
            text_ += fmt::format("  {} -> {}{}\n", parent, name, parent == top ? long_edge : "");
    }

    const inventory &host_;
    const output_style &style_;
    std::string text_;
};

} // namespace

std::string dot_text(const inventory &host, const output_style &style)
{
    return drawing(host, style).text();
}

} // namespace ctl
