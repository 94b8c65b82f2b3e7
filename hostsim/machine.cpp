#include "machine.h"

#include "caller_memory.h"
#include "packed_fields.h"
#include "portal_sessions.h"
#include "records.h"
#include "scsi_request.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <memory>
#include <string_view>
#include <vector>

namespace hostsim
{
namespace
{

constexpr vmk_MgmtUserHandle first_handle = 0x4D680001;

template <class Number>
const request_facts *find_request(Number request_facts::*column, uint64_t number)
{
    const auto at = std::ranges::find(record_requests, number, column);
    return at == record_requests.end() ? nullptr : &*at;
}

int fail(int error, int result = -1)
{
    errno = error;
    return result;
}

bool is_name(const vmk_Name &name, std::string_view expected)
{
    return std::string_view(name.string, strnlen(name.string, sizeof name.string)) == expected;
}

bool is_signature(const vmk_MgmtApiSignature &s, std::string_view name)
{
    if (!is_name(s.name, name) || !is_name(s.vendor, VARNOK_DRV_SIGNATURE_VENDOR) ||
        s.version != VARNOK_DRV_SIGNATURE_VERSION || s.numCallbacks != record_requests.size() ||
        s.callbacks == nullptr)
        return false;
    return std::equal(record_requests.begin(), record_requests.end(), s.callbacks,
                      [](const request_facts &r, const vmk_MgmtCallbackInfo &c) {
                          return c.location == VMK_MGMT_CALLBACK_KERNEL && c.callback == nullptr &&
                                 c.synchronous == 1 && c.numParms == 1 &&
                                 c.parmTypes[0] == VMK_MGMT_PARMTYPE_INOUT &&
                                 c.parmSizes[0] == r.envelope_size && c.callbackId == r.callback;
                      });
}

constexpr size_t session_number_at = offsetof(varnok_drv_session_info, sess_num);
constexpr size_t target_number_at = offsetof(varnok_drv_tgt_info, scsi_tgt_num);

fault_subject subject_of(const exchange &e)
{
    switch (e.what) {
    case request::sess_info:
        return {.target = get_field<uint32_t>(e.record, session_number_at)};
    case request::tgt_info:
        return {.target = get_field<uint32_t>(e.record, target_number_at)};
    case request::scsi_cmd:
        return subject_of_scsi(e);
    default:
        return {};
    }
}

} // namespace

int machine::open_device(driver_id driver)
{
    std::lock_guard lock(lock_);
    if (!scenario_.of(driver).present)
        return fail(ENOENT);
    if (const fault *f = next_fault(scenario_.faults, driver, request::open, {}))
        return fail(f->error.value_or(ENOENT));
    return 0;
}

int machine::init(const vmk_MgmtApiSignature &signature, vmk_MgmtUserHandle &handle)
{
    std::lock_guard lock(lock_);
    for (const driver_facts &d : drivers) {
        if (!is_native(d) || !scenario_.of(d.id).present || !is_signature(signature, d.name))
            continue;
        if (const fault *f = next_fault(scenario_.faults, d.id, request::init, {}))
            return fail(f->error.value_or(ENODEV),
                        static_cast<int>(f->status.value_or(UINT32_MAX)));
        handle = first_handle + static_cast<uint64_t>(d.id);
        return 0;
    }
    return fail(ENODEV);
}

int machine::ioctl(driver_id driver, unsigned long code, void *header)
{
    std::lock_guard lock(lock_);
    const driver_facts &d = facts(driver);
    const request_facts *r = find_request(&request_facts::ioctl_number, code - d.ioctl_base);
    if (r == nullptr)
        return fail(ENOTTY);
    varnok_drv_ioctl h;
    const std::span head(static_cast<std::byte *>(header), sizeof h);
    if (!is_writable(head))
        return fail(EFAULT);
    std::memcpy(&h, header, sizeof h);
    std::array<uint8_t, sizeof h.signature> signature{};
    std::copy(d.ioctl_signature.begin(), d.ioctl_signature.end(), signature.begin());
    if (std::memcmp(h.signature, signature.data(), signature.size()) != 0 ||
        h.addrmode != VARNOK_DRV_IOCTL_ADDRMODE || h.version != VARNOK_DRV_IOCTL_VERSION)
        return fail(EINVAL);
    const std::span record(reinterpret_cast<std::byte *>(static_cast<uintptr_t>(h.ioctlstructaddr)),
                           r->record_size);
    if (!is_writable(record))
        return fail(EFAULT);

    exchange e{driver, r->what, code, head, record};
    return serve(e, offsetof(varnok_drv_ioctl, status));
}

int machine::invoke(vmk_MgmtUserHandle handle, uint64_t callback, void *envelope)
{
    std::lock_guard lock(lock_);
    const uint64_t index = handle - first_handle;
    if (index >= drivers.size())
        return fail(EBADF);
    const driver_id driver = drivers[index].id;
    if (!is_native(driver) || !scenario_.of(driver).present)
        return fail(EBADF);
    const request_facts *r = find_request(&request_facts::callback, callback);
    if (r == nullptr)
        return fail(EINVAL);
    const std::span header(static_cast<std::byte *>(envelope), r->envelope_size);
    if (!is_writable(header))
        return fail(EFAULT);

    exchange e{driver, r->what, callback, header, header.subspan(r->record_offset)};
    return serve(e, r->status_offset);
}

void machine::before_fork() { lock_.lock(); }

void machine::after_fork_in_parent() { lock_.unlock(); }

// The lock belongs to the parent's thread, whose number the child's thread does not have.
void machine::after_fork_in_child() { std::construct_at(&lock_); }

int machine::serve(exchange &e, size_t status_offset)
{
    // A call that fails leaves the caller's records as they were, but for data that a real target
    // sent before it broke off. Only an observer makes a call fail after the answer.
    const std::span<std::byte> header = e.header, record = e.record;
    std::vector<std::byte> sent_header, sent_record;
    if (on_request || on_answer) {
        sent_header.assign(header.begin(), header.end());
        sent_record.assign(record.begin(), record.end());
    }

    if (on_request)
        on_request(e);
    if (e.status == 0 && e.transport_errno == 0)
        e.status = answer(e);
    if (on_answer)
        on_answer(e);

    if (e.transport_errno == 0 || e.status != 0) {
        set_field(header, e.status, status_offset);
    } else {
        std::copy(sent_header.begin(), sent_header.end(), header.begin());
        std::copy(sent_record.begin(), sent_record.end(), record.begin());
    }
    return e.transport_errno == 0 ? 0 : fail(e.transport_errno);
}

const port *machine::find_port(const exchange &e) const
{
    const driver_ports &ports = scenario_.of(e.driver);
    uint64_t instance = 0;
    if (!is_native(e.driver)) {
        instance = get_field<uint16_t>(e.header, offsetof(varnok_drv_ioctl, hbaselect));
    } else if (e.what == request::hostno) {
        instance = get_field<uint64_t>(e.header);
    } else {
        auto at = ports.by_host_no.find(get_field<uint32_t>(e.header));
        return at == ports.by_host_no.end() ? nullptr : at->second;
    }
    return instance < ports.by_instance.size() ? ports.by_instance[instance] : nullptr;
}

uint32_t machine::answer(exchange &e)
{
    const port *p = facts(e.what).whom == asked_of::one_port ? find_port(e) : nullptr;
    fault_subject subject = subject_of(e);
    if (p != nullptr)
        subject.instance = p->instance;

    if (const fault *f = next_fault(scenario_.faults, e.driver, e.what, subject))
        return apply_fault(*f, e, scenario_.check_condition_status);
    if (e.what == request::hba_cnt) {
        const driver_ports &ports = scenario_.of(e.driver);
        set_field(e.record, is_native(e.driver) ? static_cast<int32_t>(ports.by_instance.size())
                                                : ports.answering);
        return 0;
    }
    if (p == nullptr || p->described->absent)
        return status_not_found;
    return answer_for_port(e, *p);
}

uint32_t machine::answer_for_port(exchange &e, const port &p)
{
    // The request's record has the session's number at the offset.
    const auto answer_for_session = [&](size_t number_offset, auto make_record) {
        const auto number = get_field<uint32_t>(e.record, number_offset);
        const session_description *const s = p.described->find_session(number);
        if (s == nullptr)
            return status_not_found;
        set_field(e.record, make_record(p, *s, number));
        return 0U;
    };

    switch (e.what) {
    case request::hostno:
        set_field(e.record, p.host_no,
                  is_native(e.driver) ? offsetof(varnok_drv_hostno_cb, host_no)
                                      : offsetof(varnok_drv_hostno, host_no));
        return 0;
    case request::pci_info:
        set_field(e.record, pci_record(p));
        return 0;
    case request::port_info:
        if (!p.described->portal.empty())
            e.transport_errno = refresh_sessions_from_portal(p);
        if (e.transport_errno == 0)
            set_field(e.record, port_record(p));
        return 0;
    case request::sess_info:
        return answer_for_session(session_number_at, session_record);
    case request::tgt_info:
        return answer_for_session(target_number_at, target_record);
    default:
        return answer_scsi(e, p, disks_, scenario_.check_condition_status);
    }
}

} // namespace hostsim
