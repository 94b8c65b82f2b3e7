// The host as a tree.
#include "varnokctl/render.h"

#include "varnokctl/facts.h"
#include "varnokctl/words.h"

#include <algorithm>
#include <fmt/format.h>
#include <utility>

namespace ctl
{
namespace
{

struct tree_node {
    std::vector<std::string> facts; // empty ones are not shown
    std::vector<tree_node> children;
    bool bad = false; // down or failed
};

constexpr std::string_view fact_gap = "  "; // between two facts
constexpr size_t least_fact = 8;            // of a fact, however deep it stands

bool is_blank(const std::string &fact) { return fact.find_first_not_of(' ') == std::string::npos; }

struct branch_lines {
    const char *branch, *last_branch, *trunk, *blank;
};
constexpr branch_lines box_lines = {"├─ ", "└─ ", "│  ", "   "};
constexpr branch_lines ascii_lines = {"|- ", "`- ", "|  ", "   "};

class tree_printer
{
  public:
    explicit tree_printer(const output_style &style)
        : style_(style), lines_(style.utf8 ? box_lines : ascii_lines)
    {
    }

    // The first line starts with first; the node's other lines and its children start with rest.
    void print(const tree_node &node, const std::string &first, const std::string &rest)
    {
        const std::string below = rest + (node.children.empty() ? "" : lines_.trunk);
        const size_t indent =
            display_width(first) + display_width(node.facts.front()) + fact_gap.size();
        print_facts(node, first, padded(below, indent));
        for (const auto &child : node.children) {
            const bool last = &child == &node.children.back();
            print(child, rest + (last ? lines_.last_branch : lines_.branch),
                  rest + (last ? lines_.blank : lines_.trunk));
        }
    }

    const std::string &text() const { return text_; }

  private:
    // Facts that do not fit on a line begin another one.
    void print_facts(const tree_node &node, const std::string &first, const std::string &rest)
    {
        std::string line = first;
        size_t begin = first.size(); // of the facts
        bool begun = false;
        const auto end_line = [&] {
            line = trimmed(line);
            const size_t lines = std::min(begin, line.size());
            text_ += line.substr(0, lines) + coloured(line.substr(lines), node.bad, style_) + '\n';
        };
        for (const std::string &fact : node.facts) {
            const bool fits =
                display_width(line) + fact_gap.size() + display_width(fact) <= style_.width;
            if (fact.empty() || (is_blank(fact) && !fits))
                continue;
            if (begun && !fits) {
                end_line();
                line = rest;
                begin = rest.size();
                begun = false;
            }
            line += begun ? fact_gap : "";
            const size_t used = std::min(display_width(line), style_.width);
            line += shortened(fact, std::max(style_.width - used, least_fact), style_);
            begun = true;
        }
        end_line();
    }

    const output_style &style_;
    const branch_lines &lines_;
    std::string text_;
};

// A target's LUNs stand below each other, so their facts get equal widths. That makes the bytes a
// fact of their own.
std::vector<tree_node> lun_nodes(const target_entry &target, const output_style &style)
{
    constexpr size_t size_fact = 2;
    const size_t last_size = size_fact + (style.bytes ? 1 : 0);
    std::vector<tree_node> nodes;
    std::vector<size_t> widths;
    output_style without_bytes = style;
    without_bytes.bytes = false;
    for (const lun_entry &lun : target.luns) {
        std::vector<std::string> facts = lun_facts(lun, without_bytes);
        if (style.bytes) {
            const uint64_t capacity = lun.info.Capacity;
            const std::string bytes = capacity == 0 ? "" : fmt::format("{} B", capacity);
            facts.insert(facts.begin() + size_fact + 1, bytes);
        }
        widths.resize(facts.size());
        for (size_t at = 0; at < widths.size(); ++at)
            widths[at] = std::max(widths[at], display_width(facts[at]));
        nodes.push_back({std::move(facts), {}});
    }
    for (tree_node &node : nodes)
        for (size_t at = 0; at + 1 < widths.size(); ++at) // nothing follows the last
            node.facts[at] = padded(node.facts[at], widths[at], at >= size_fact && at <= last_size);
    return nodes;
}

tree_node target_node(const target_entry &target, const port_entry &port, const output_style &style)
{
    return {{fmt::format("Target {}", +target.info.ScsiTgtNum),
             field_text(target.info.TargetName, style), target_address(port, target),
             lun_count(target)},
            lun_nodes(target, style),
            !target.is_counted};
}

tree_node port_node(const port_entry &port, const output_style &style)
{
    tree_node node{{fmt::format("Port {}", port.instance)}, {}};
    node.bad = !port.info || port.info->PortState == VARNOK_PORT_STATE_1;
    if (!port.info) {
        node.facts.emplace_back("not readable");
        return node;
    }
    const VARNOK_PHY_PORT_INFO &info = *port.info;
    for (const auto &fact :
         {field_text(info.HbaName, style), field_text(info.ModelName, style),
          port_speed(info.PortSpeed), port_state(info.PortState), hex_bytes(info.MAC, ":")})
        node.facts.push_back(fact);
    if (port.portal) {
        node.facts.push_back(ip_address(port.portal->IPv4Addr));
        node.facts.push_back(ip_address(port.portal->IPv6Addr));
    }
    if (port.targets_unread) {
        node.facts.emplace_back(targets_not_readable);
        node.bad = true;
    }
    for (const target_entry &target : port.targets)
        node.children.push_back(target_node(target, port, style));
    return node;
}

} // namespace

std::string tree_text(const inventory &host, const output_style &style)
{
    tree_node top{{"Host"}, {}};
    for (const std::string &fact : host_facts(host))
        top.facts.push_back(fact);
    for (const port_entry &port : host.ports)
        top.children.push_back(port_node(port, style));
    tree_printer printer(style);
    printer.print(top, "", "");
    return printer.text();
}

} // namespace ctl
