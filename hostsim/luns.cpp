#include "luns.h"

#include "disk.h"
#include "reading.h"

#include <algorithm>
#include <filesystem>
#include <numeric>
#include <utility>

namespace hostsim
{
namespace
{

constexpr uint64_t default_disk_size = 100ULL << 30;

void sort_by_wire(lun_list &luns)
{
    luns.by_wire.resize(luns.entries.size());
    std::iota(luns.by_wire.begin(), luns.by_wire.end(), 0);
    std::ranges::sort(luns.by_wire, {}, [&](uint32_t k) { return luns.entries[k].wire; });
}

void check(lun_description &d, const place &at)
{
    d.size = d.given_size.value_or(is_disk(d) ? default_disk_size : 0);
    if (d.size % d.block_size != 0)
        place{&at, "size"}.fail("not a multiple of the block size " + std::to_string(d.block_size));
    if (d.first.raw && d.copies != 1)
        place{&at, "repeat"}.fail("not for a LUN that is given as its bytes");
    if (!d.first.raw && d.first.number + d.copies - 1 > lun_number_max)
        at.fail("its LUNs go beyond " + std::to_string(lun_number_max));
}

class lun_reader : public object_reader<lun_description>
{
  public:
    lun_reader(reading &r, lun_list &into, uint32_t &next_number)
        : object_reader(r.into.lun_descriptions.emplace_back(), lun_members), r_(r), luns_(into),
          next_number_(next_number)
    {
        into_.first = numbered_lun(next_number);
    }

    void close(const place &at) override
    {
        lun_description &d = into_;
        check(d, at);
        if (d.file) {
            d.file = std::filesystem::path(r_.folder) / *d.file;
            r_.files.push_back({&d, place{&at, "file"}.text()});
        }
        luns_.entries.push_back({d.first.wire, &d});
        for (uint32_t k = 1; k < d.copies; ++k)
            luns_.entries.push_back({numbered_lun(d.first.number + k).wire, &d});
        if (!d.first.raw)
            next_number_ = d.first.number + d.copies;
    }

  private:
    reading &r_;
    lun_list &luns_;
    uint32_t &next_number_;
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
        const std::string error = prepare_file(*lun->file, lun->size);
        if (!error.empty())
            throw scenario_error(where + ": " + error);
    }
}

} // namespace hostsim
