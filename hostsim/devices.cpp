// The devices that LUNs of several targets refer to.
#include "reading.h"
#include "unit_reader.h"

#include <utility>

namespace hostsim
{
namespace
{

constexpr size_t longest_name = 255;
constexpr uint64_t first_identity = 1ULL << 48; // above those that a target and a position make

class device_objects : public container
{
  public:
    explicit device_objects(reading &r) : r_(r) {}

    void take(const value &, const place &at) override { at.fail("not an object"); }
    std::unique_ptr<container> open(bool array, const place &at) override
    {
        if (array)
            return container::open(array, at);
        if (at.key.size() > longest_name)
            at.fail("a name longer than " + std::to_string(longest_name) + " bytes");
        limit(++described_, most_host_luns, "devices", *at.up);
        lun_description &device = r_.device(std::string(at.key), at);
        device.identity = first_identity | described_;
        return std::make_unique<unit_reader>(r_, device);
    }

  private:
    reading &r_;
    uint64_t described_ = 0;
};

} // namespace

std::string to_device_name(const value &v, const place &at) { return to_text(v, at, longest_name); }

lun_description &reading::device(const std::string &name, const place &at)
{
    named_device &named = devices[name];
    if (named.what == nullptr) {
        named.what = &into.devices.emplace_back();
        named.where = at.text();
    }
    return *named.what;
}

std::unique_ptr<container> open_devices(reading &r) { return std::make_unique<device_objects>(r); }

void check_devices(const reading &r)
{
    for (const auto &[name, device] : r.devices)
        if (device.what->identity == 0)
            throw scenario_error(device.where + ": there is no such device");
}

} // namespace hostsim
