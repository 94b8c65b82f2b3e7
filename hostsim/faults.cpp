#include "faults.h"

#include "requests.h"
#include "scsi_request.h"

#include <algorithm>

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
        if (f.target && f.what != request::sess_info && f.what != request::tgt_info &&
            f.what != request::scsi_cmd)
            place{&at, "target"}.fail("only for sess_info, tgt_info and scsi_cmd");
        if (f.lun && (f.what != request::scsi_cmd || !f.target))
            place{&at, "lun"}.fail("only for scsi_cmd with a target");
        if (!f.cdb.empty() && f.what != request::scsi_cmd)
            place{&at, "cdb"}.fail("only for scsi_cmd");
        if (f.sense && f.what != request::scsi_cmd)
            place{&at, "sense"}.fail("only for scsi_cmd");
        if (f.status && f.what == request::open)
            place{&at, "status"}.fail("not for open");
        if (!f.status && !f.error && !f.sense && f.what != request::open)
            at.fail("nothing fails: status, errno or sense is missing");
    }
};

bool is_about(const fault &f, const fault_subject &subject)
{
    const auto starts = [&] {
        return f.cdb.size() <= subject.cdb.size() &&
               std::equal(f.cdb.begin(), f.cdb.end(), subject.cdb.begin(),
                          [](char c, uint8_t byte) { return static_cast<uint8_t>(c) == byte; });
    };
    return (!f.instance || f.instance == subject.instance) &&
           (!f.target || f.target == subject.target) && (!f.lun || f.lun->wire == subject.lun) &&
           starts();
}

} // namespace

std::string to_cdb_start(const value &v, const place &at)
{
    constexpr size_t longest = 16;
    std::string bytes = hex_bytes(to_text(v, at, 2 + 2 * longest));
    if (bytes.empty())
        at.fail("not the first bytes of a CDB such as \"0x1201\"");
    return bytes;
}

std::unique_ptr<container> open_fault(fault &into) { return std::make_unique<fault_reader>(into); }

const fault *next_fault(std::vector<fault> &faults, driver_id driver, request what,
                        const fault_subject &subject)
{
    const fault *fires = nullptr;
    for (fault &f : faults) {
        if (f.driver != driver || f.what != what || !is_about(f, subject))
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
