#include "luns.h"

#include "disk.h"
#include "reading.h"
#include "unit_reader.h"

#include <algorithm>
#include <numeric>
#include <utility>

namespace hostsim
{
namespace
{

void sort_by_wire(lun_list &luns)
{
    luns.by_wire.resize(luns.entries.size());
    std::iota(luns.by_wire.begin(), luns.by_wire.end(), 0);
    std::ranges::sort(luns.by_wire, {}, [&](uint32_t k) { return luns.entries[k].wire; });
}

// A LUN describes itself or refers to a device.
class lun_reader : public unit_reader
{
  public:
    lun_reader(reading &r, lun_list &into, uint32_t &next_number)
        : unit_reader(r, r.into.lun_descriptions.emplace_back()), luns_(into),
          next_number_(next_number), own_(placement_, lun_members)
    {
        placement_.first = numbered_lun(next_number);
    }

    bool select(std::string_view name) override
    {
        is_own_ = own_.select(name);
        described_ |= !is_own_ || name == "repeat";
        return is_own_ || unit_reader::select(name);
    }
    void take(const value &v, const place &at) override
    {
        is_own_ ? own_.take(v, at) : unit_reader::take(v, at);
    }
    std::unique_ptr<container> open(bool array, const place &at) override
    {
        return is_own_ ? own_.open(array, at) : unit_reader::open(array, at);
    }
    void close(const place &at) override
    {
        const lun_number &first = placement_.first;
        if (first.raw && placement_.copies != 1)
            place{&at, "repeat"}.fail("not for a LUN that is given as its bytes");
        if (!first.raw && first.number + placement_.copies - 1 > lun_number_max)
            at.fail("its LUNs go beyond " + std::to_string(lun_number_max));
        const lun_description *const what = unit(at);
        luns_.entries.push_back({first.wire, what});
        for (uint32_t k = 1; k < placement_.copies; ++k)
            luns_.entries.push_back({numbered_lun(first.number + k).wire, what});
        if (!first.raw)
            next_number_ = first.number + placement_.copies;
    }

  private:
    const lun_description *unit(const place &at)
    {
        if (!placement_.device) {
            unit_reader::close(at);
            return &into_;
        }
        const place here{&at, "device"};
        if (described_)
            here.fail("only lun stands beside it");
        r_.into.lun_descriptions.pop_back(); // this one's
        return &r_.device(*placement_.device, here);
    }

    lun_list &luns_;
    uint32_t &next_number_;
    lun_placement placement_;
    object_reader<lun_placement> own_;
    bool is_own_ = false;
    bool described_ = false;
};

class lun_array : public container
{
  public:
    lun_array(reading &r, session_description &into) : r_(r), into_(into) {}

    void take(const value &, const place &at) override { at.fail("not an object"); }
    std::unique_ptr<container> open(bool array, const place &at) override
    {
        if (array)
            return container::open(array, at);
        check_count(*at.up);
        return std::make_unique<lun_reader>(r_, *luns_, next_number_);
    }
    void close(const place &at) override
    {
        check_count(at);
        sort_by_wire(*luns_);
        const auto wire = [&](uint32_t k) { return luns_->entries[k].wire; };
        if (std::ranges::adjacent_find(luns_->by_wire, {}, wire) != luns_->by_wire.end())
            at.fail("a LUN is there twice");
        into_.luns = luns_;
    }

  private:
    void check_count(const place &at) const
    {
        const size_t count = luns_->entries.size();
        limit(count, most_target_luns, "LUNs", at);
        limit(r_.luns + r_.port_luns + count, most_host_luns, "LUNs on the host", at);
    }

    reading &r_;
    session_description &into_;
    std::shared_ptr<lun_list> luns_ = std::make_shared<lun_list>();
    uint32_t next_number_ = 0;
};

} // namespace

std::shared_ptr<const lun_list> no_luns()
{
    static const auto none = std::make_shared<const lun_list>();
    return none;
}

std::shared_ptr<const lun_list> default_luns()
{
    struct disk_and_list {
        lun_description disk;
        lun_list luns;
    };
    static const auto both = [] {
        auto made = std::make_shared<disk_and_list>();
        made->disk.size = default_disk_size;
        made->luns.entries.push_back({0, &made->disk});
        sort_by_wire(made->luns);
        return made;
    }();
    return {both, &both->luns};
}

std::unique_ptr<container> open_luns(reading &r, session_description &into)
{
    return std::make_unique<lun_array>(r, into);
}

void prepare_files(const reading &r)
{
    for (const auto &[lun, where] : r.files) {
        std::string error = prepare_file(*lun->file, lun->size);
        if (!error.empty())
            throw scenario_error(error.insert(0, where + ": "));
    }
}

} // namespace hostsim
