#include "faults.h"

#include "requests.h"
#include "scsi_request.h"

namespace hostsim
{

namespace
{

class fault_reader : public object_reader<fault>
{
  public:
    explicit fault_reader(fault &into) : object_reader(into, fault_members) {}

    void close(const place &at) override
    {
        object_reader::close(at);
        const fault &f = into_;
        const asked_of whom = facts(f.what).whom;
        if (whom == (is_native(f.driver) ? asked_of::legacy_driver : asked_of::native_driver))
            place{&at, "request"}.fail("not made to this driver");
        if (f.instance && whom != asked_of::one_port)
            place{&at, "instance"}.fail("the request is not made to a port");
        if (f.sense && f.what != request::scsi_cmd)
            place{&at, "sense"}.fail("only for scsi_cmd");
        if (f.status && f.what == request::open)
            place{&at, "status"}.fail("not for open");
        if (!f.status && !f.error && !f.sense && f.what != request::open)
            at.fail("nothing fails: status, errno or sense is missing");
    }
};

} // namespace

std::unique_ptr<container> open_fault(fault &into) { return std::make_unique<fault_reader>(into); }

const fault *next_fault(std::vector<fault> &faults, driver_id driver, request what,
                        std::optional<uint32_t> instance)
{
    const fault *fires = nullptr;
    for (fault &f : faults) {
        if (f.driver != driver || f.what != what || (f.instance && f.instance != instance))
            continue;
        ++f.seen;
        if (fires == nullptr && f.seen >= f.nth && (f.times == 0 || f.seen - f.nth < f.times))
            fires = &f;
    }
    return fires;
}

uint32_t apply_fault(const fault &f, exchange &e, uint32_t check_condition_status)
{
    e.transport_errno = f.error.value_or(0);
    if (f.sense && e.transport_errno == 0)
        store_sense(e, *f.sense);
    return f.status.value_or(f.sense ? check_condition_status : 0);
}

} // namespace hostsim
