#include "varnokctl/report/picture.h"

#include "varnokctl/facts.h"
#include "varnokctl/fields.h"
#include "varnokctl/report/templates.h"
#include "varnokctl/words.h"

#include <algorithm>
#include <array>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <map>
#include <set>
#include <utility>

namespace ctl
{
namespace
{

// ---- Boxes and lines --------------------------------------------------------------------------

constexpr size_t most_boxes = 16; // of a column
constexpr int box_height = 48, box_gap = 12, top = 24;

struct column_form {
    const char *head, *noun;
    int x, width;
    size_t name_room, sub_room; // in characters
};

constexpr std::array<column_form, 3> forms = {{{"Ports", "port", 0, 240, 26, 30},
                                               {"Targets", "target", 340, 390, 45, 52},
                                               {"Devices", "device group", 830, 250, 27, 31}}};
enum column_name : size_t { ports_column, targets_column, devices_column };

struct picture_box {
    std::string name, sub;
    health_status level = health_status::ok;
    bool has_state = true;
    int y = 0;
};

struct picture_line {
    size_t from, to; // places in their columns
    health_status level = health_status::ok;
};

struct picture_column {
    std::vector<picture_box> boxes;
    size_t folded = 0; // boxes that the last one stands for

    // The box that stands for the place.
    size_t shown(size_t place) const { return std::min(place, boxes.size() - 1); }
};

const char *shape_of(health_status level)
{
    switch (level) {
    case health_status::ok:
        return "M12 34a4 4 0 1 0 8 0a4 4 0 1 0-8 0";
    case health_status::warning:
        return "M16 29l5 9h-10z";
    case health_status::unknown: // a ring
        return "M12 34a4 4 0 1 0 8 0a4 4 0 1 0-8 0zm2 0a2 2 0 1 1 4 0a2 2 0 1 1-4 0z";
    default:
        return "M12.5 29l3.5 3.5 3.5-3.5 1.5 1.5-3.5 3.5 3.5 3.5-1.5 1.5-3.5-3.5-3.5 3.5-1.5-1.5 "
               "3.5-3.5-3.5-3.5z";
    }
}

bool is_found(health_status level)
{
    return level == health_status::warning || level == health_status::critical;
}

bool is_unread(const device_path &path) { return path_state(path).empty(); }

health_status level_of(const device_path &path)
{
    return !path_works(path) ? health_status::critical
           : is_unread(path) ? health_status::unknown
                             : health_status::ok;
}

// Boxes past the limit become one, which is as bad as the worst of them.
void fold(picture_column &column, const char *noun)
{
    if (column.boxes.size() <= most_boxes)
        return;
    const auto rest = column.boxes.begin() + (most_boxes - 1);
    column.folded = static_cast<size_t>(column.boxes.end() - rest);
    picture_box last = {.name = fmt::format("{} more", column.folded),
                        .sub = "all well",
                        .level = health_status::ok};
    size_t bad = 0;
    for (auto box = rest; box != column.boxes.end(); ++box) {
        last.level = worse(last.level, box->level);
        bad += is_found(box->level) ? 1 : 0;
    }
    if (bad != 0)
        last.sub = fmt::format("{} with a finding", bad);
    else if (last.level == health_status::unknown)
        last.sub = "not all were read";
    last.name += fmt::format(" {}", noun);
    column.boxes.erase(rest, column.boxes.end());
    column.boxes.push_back(std::move(last));
}

// ---- What is drawn ----------------------------------------------------------------------------

class painter
{
  public:
    painter(const examined_host &examined, const std::vector<device_group> &groups,
            const finding_marks &marks)
        : examined_(examined), marks_(marks)
    {
        for (const port_entry &port : examined.host.ports)
            add_port(port);
        for (const device_group *group : in_order(groups))
            add_group(*group);
        for (size_t at = 0; at < forms.size(); ++at) {
            total_[at] = columns_[at].boxes.size();
            fold(columns_[at], at == ports_column     ? "ports"
                               : at == targets_column ? "targets"
                                                      : "groups");
        }
        place();
    }

    std::string text(const std::string &id) const
    {
        page_data data;
        data["id"] = id;
        data["width"] = fmt::to_string(forms.back().x + forms.back().width);
        data["height"] = fmt::to_string(height_);
        data["title"] = "Topology: ports, the targets they lead to, and the devices there";
        const std::vector<std::string> facts = host_facts(examined_.host);
        data["desc"] =
            fmt::format("{}. The tables below say the same in words.", fmt::join(facts, ", "));
        page_list heads, boxes;
        for (size_t at = 0; at < forms.size(); ++at) {
            if (columns_[at].boxes.empty())
                continue;
            page_data head;
            head["x"] = fmt::to_string(forms[at].x + 2);
            head["text"] = forms[at].head;
            heads.push_back(std::move(head));
            for (const picture_box &box : columns_[at].boxes)
                boxes.push_back(box_data(box, forms[at]));
        }
        data["heads"] = heads;
        data["boxes"] = boxes;
        data["lines"] = line_list();
        const std::string folded = folded_text();
        data["folded"] = folded.empty() ? page_data(false) : page_data(folded);
        return filled(report_template::picture, data);
    }

  private:
    void add_port(const port_entry &port)
    {
        picture_box box = {.name = fmt::format("port {}", port.instance),
                           .sub = "not readable",
                           .level = marks_.port(port).level};
        if (port.info) {
            const std::string name = field_text(port.info->HbaName, examined_.style);
            const std::string speed = port_speed(port.info->PortSpeed);
            const std::string model = field_text(port.info->ModelName, examined_.style);
            box.name = fmt::format("{} {}", port.instance, name);
            box.sub = port_state(port.info->PortState);
            for (const std::string &part : {speed, model})
                box.sub += part.empty() ? "" : (box.sub.empty() ? "" : ", ") + part;
        }
        const size_t place = columns_[ports_column].boxes.size();
        columns_[ports_column].boxes.push_back(std::move(box));
        for (const target_entry &target : port.targets)
            add_target(port, target, place);
    }

    // A target that several ports lead to is one box.
    void add_target(const port_entry &port, const target_entry &target, size_t port_place)
    {
        const std::string name = field_text(target.info.TargetName, examined_.style);
        std::vector<picture_box> &boxes = columns_[targets_column].boxes;
        const auto [found, is_new] = targets_.try_emplace(
            name.empty() ? fmt::format("\n{} {}", port.instance, +target.info.ScsiTgtNum) : name,
            boxes.size());
        const size_t place = found->second;
        if (is_new)
            boxes.push_back({.name = name.empty() ? "target without a name" : name,
                             .sub = target_address(port, target)});
        picture_box &box = boxes[place];
        if (is_new)
            box.sub += (box.sub.empty() ? "" : ", ") + lun_count(target);
        place_of_[&target] = place;
        const device_path path = {&port, &target, nullptr,
                                  session_of(port, target.info.ScsiTgtNum)};
        const health_status level = marks_.target(port, target).level;
        box.level = worse(box.level, level);
        if (is_unread(path))
            box.level = worse(box.level, health_status::unknown);
        lines_[0].push_back({port_place, place, worse(level, level_of(path))});
    }

    // Each near its targets, so that fewer lines cross.
    std::vector<const device_group *> in_order(const std::vector<device_group> &groups) const
    {
        std::vector<std::pair<double, const device_group *>> places;
        for (const device_group &group : groups) {
            double sum = 0;
            for (const device_path &path : group.paths)
                sum += static_cast<double>(place_of_.at(path.target));
            places.emplace_back(sum / static_cast<double>(group.paths.size()), &group);
        }
        std::ranges::stable_sort(places, {}, [](const auto &place) { return place.first; });
        std::vector<const device_group *> order;
        order.reserve(places.size());
        for (const auto &[mean, group] : places)
            order.push_back(group);
        return order;
    }

    void add_group(const device_group &group)
    {
        const size_t count = group.devices.size();
        const std::string size = capacity_text(capacity_of(group.devices));
        picture_box box = {.name = counted(count, "device") + (size.empty() ? "" : ", " + size),
                           .sub = paths_text(group)};
        size_t bad = 0;
        for (const device_entry *device : group.devices) {
            const health_status level = marks_.device(*device).level;
            box.level = worse(box.level, level);
            bad += level != health_status::ok ? 1 : 0;
        }
        const bool works = std::ranges::any_of(group.paths, path_works);
        if (!all_paths_work(group))
            box.level = worse(box.level, works ? health_status::warning : health_status::critical);
        else if (bad != 0)
            box.sub += fmt::format("; {} with a finding", bad);
        if (std::ranges::any_of(group.paths, is_unread))
            box.level = worse(box.level, health_status::unknown);
        const size_t place = columns_[devices_column].boxes.size();
        columns_[devices_column].boxes.push_back(std::move(box));
        for (const device_path &path : group.paths)
            lines_[1].push_back({place_of_.at(path.target), place, level_of(path)});
    }

    // Each column stands in the middle of the picture's height.
    void place()
    {
        const auto needs = [](const picture_column &column) {
            return static_cast<int>(column.boxes.size()) * (box_height + box_gap) - box_gap;
        };
        int most = 0;
        for (const picture_column &column : columns_)
            most = std::max(most, needs(column));
        height_ = top + most + 2;
        for (picture_column &column : columns_) {
            int y = top + (most - needs(column)) / 2;
            for (picture_box &box : column.boxes) {
                box.y = y;
                y += box_height + box_gap;
            }
        }
    }

    page_data box_data(const picture_box &box, const column_form &form) const
    {
        page_data data;
        data["x"] = fmt::to_string(form.x);
        data["y"] = fmt::to_string(box.y);
        data["w"] = fmt::to_string(form.width);
        data["h"] = fmt::to_string(box_height);
        data["inner_w"] = fmt::to_string(form.width - 2);
        data["inner_h"] = fmt::to_string(box_height - 2);
        data["whole"] = fmt::format("{}: {}", box.name, box.sub);
        data["name"] = shortened(box.name, form.name_room, examined_.style);
        data["sub"] = shortened(box.sub, form.sub_room, examined_.style);
        data["level"] = mark_of(box.level);
        page_data bar;
        bar["shape"] = shape_of(box.level);
        data["bars"] = page_list{bar};
        data["sub_x"] = "27";
        return data;
    }

    // Of the lines between two boxes the worst is drawn.
    page_list line_list() const
    {
        page_list list;
        for (size_t at = 0; at < lines_.size(); ++at) {
            const picture_column &from = columns_[at];
            const picture_column &to = columns_[at + 1];
            std::map<std::pair<size_t, size_t>, health_status> drawn;
            for (const picture_line &line : lines_[at]) {
                health_status &level = drawn[{from.shown(line.from), to.shown(line.to)}];
                level = worse(level, line.level);
            }
            const int x1 = forms[at].x + forms[at].width;
            const int x2 = forms[at + 1].x;
            const int middle = (x1 + x2) / 2;
            for (const auto &[ends, level] : drawn) {
                const int y1 = from.boxes[ends.first].y + box_height / 2;
                const int y2 = to.boxes[ends.second].y + box_height / 2;
                page_data line;
                line["level"] = mark_of(level);
                line["d"] =
                    fmt::format("M{} {}C{} {} {} {} {} {}", x1, y1, middle, y1, middle, y2, x2, y2);
                list.push_back(std::move(line));
            }
        }
        return list;
    }

    std::string folded_text() const
    {
        std::vector<std::string> parts;
        for (size_t at = 0; at < forms.size(); ++at)
            if (columns_[at].folded != 0)
                parts.push_back(fmt::format("{} of {}", columns_[at].folded,
                                            counted(total_[at], forms[at].noun)));
        return parts.empty()
                   ? ""
                   : fmt::format("The picture does not draw one by one: {}. The tables have them.",
                                 fmt::join(parts, ", "));
    }

    const examined_host &examined_;
    const finding_marks &marks_;
    std::array<picture_column, 3> columns_;
    std::array<size_t, 3> total_{};
    std::array<std::vector<picture_line>, 2> lines_;
    std::map<std::string, size_t> targets_; // by their names
    std::map<const target_entry *, size_t> place_of_;
    int height_ = 0;
};

} // namespace

std::string picture_of(const examined_host &examined, const std::vector<device_group> &groups,
                       const finding_marks &marks, const std::string &id)
{
    return examined.host.ports.empty() ? "" : painter(examined, groups, marks).text(id);
}

} // namespace ctl
