#include "varnokctl/report/finding_marks.h"

#include <algorithm>
#include <array>

namespace ctl
{
namespace
{

void put(finding_mark &mark, const health_rule &rule)
{
    mark.level = worse(mark.level, rule.level);
    if (std::ranges::find(mark.rules, rule.name) == mark.rules.end())
        mark.rules.push_back(rule.name);
}

template <class Marks, class Place>
const finding_mark &mark_at(const Marks &marks, const Place &place)
{
    static const finding_mark none;
    const auto found = marks.find(place);
    return found == marks.end() ? none : found->second;
}

} // namespace

const char *mark_of(health_status status)
{
    constexpr std::array<const char *, 4> marks = {mark_ok, mark_warning, mark_critical,
                                                   mark_unknown};
    // cppcheck-suppress CastIntegerToAddressAtReturn; a false alarm
    return marks[static_cast<size_t>(status)];
}

health_status worse(health_status one, health_status other)
{
    constexpr std::array<int, 4> rank = {0, 1, 3, 2};
    return rank[static_cast<size_t>(one)] < rank[static_cast<size_t>(other)] ? other : one;
}

finding_marks::finding_marks(const examined_host &examined, const health_report &report)
{
    for (const auto &[rule, findings] : report.judged)
        for (const finding &found : findings)
            add(*rule, found);
    for (const failed_call &failure : examined.host.failures)
        if (failure.lun && failure.port && failure.target)
            luns_[{{*failure.port, *failure.target}, *failure.lun}].texts.push_back(
                advice_on(failure).meaning);
}

// A device's own notes say what was found there.
void finding_marks::add(const health_rule &rule, const finding &found)
{
    if (!found.device.empty())
        return;
    if (found.target && !found.ports.empty()) {
        const target_place place = {found.ports.front(), *found.target};
        put(found.lun ? luns_[{place, *found.lun}] : targets_[place], rule);
        return;
    }
    for (const uint32_t port : found.ports)
        put(ports_[port], rule);
}

const finding_mark &finding_marks::port(const port_entry &port) const
{
    return mark_at(ports_, port.instance);
}

const finding_mark &finding_marks::target(const port_entry &port, const target_entry &target) const
{
    return mark_at(targets_, target_place{port.instance, target.info.ScsiTgtNum});
}

finding_mark finding_marks::device(const device_entry &device) const
{
    finding_mark mark;
    for (const device_note &note : device.notes) {
        put(mark, *find_rule(note.rule));
        mark.texts.push_back(note.text);
    }
    for (const auto &[port, target, lun, session] : device.paths) {
        const finding_mark &own =
            mark_at(luns_, std::pair(target_place{port->instance, target->info.ScsiTgtNum},
                                     levels_of(lun->info)));
        mark.level = worse(mark.level, own.level);
        mark.texts.insert(mark.texts.end(), own.texts.begin(), own.texts.end());
    }
    return mark;
}

} // namespace ctl
