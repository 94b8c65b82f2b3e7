#include "iscsi_session.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <set>
#include <string_view>
#include <utility>

namespace hostsim::iscsi
{
namespace
{

// Whether a comes before b, as serial numbers do.
bool before(uint32_t a, uint32_t b) { return static_cast<int32_t>(a - b) < 0; }

[[noreturn]] void fail_incomplete(const std::string &what) { throw failure(EIO, what); }

// The bytes that the target says are left over or missing. Data units with a status have the bits,
// too.
struct residual_count {
    explicit residual_count(const pdu &unit)
    {
        constexpr uint8_t underflow_bit = 0x02, overflow_bit = 0x04;
        count = unit.get<uint32_t>(at::residual);
        under = (unit.flags() & underflow_bit) != 0;
        over = (unit.flags() & overflow_bit) != 0;
    }
    uint32_t count;
    bool under;
    bool over;
};

bool is_name(std::string_view name)
{
    constexpr size_t longest = 223;
    return !name.empty() && name.size() <= longest &&
           std::ranges::all_of(name, [](unsigned char c) { return c > ' ' && c != 0x7F; });
}

} // namespace

// The data of the command that runs.
class session::transfer
{
  public:
    explicit transfer(const scsi_command &c)
        : reads(!c.in.empty()), length(reads ? c.in.size() : c.out.size()), command_(c)
    {
    }

    // A unit of data from the target. The units come in order and without gaps.
    void take(const pdu &unit)
    {
        if (!reads)
            fail_protocol("data for a command that reads nothing");
        if (unit.get<uint32_t>(at::data_number) != units_++)
            fail_protocol("a unit of data is missing");
        if (unit.get<uint32_t>(at::buffer_offset) != moved)
            fail_protocol("data at a wrong offset");
        if (unit.data.size() > length - moved)
            fail_protocol("more data than was asked for");
        if (!unit.data.empty())
            std::memcpy(command_.in.data() + moved, unit.data.data(), unit.data.size());
        moved += unit.data.size();
    }

    // The next bytes to the target.
    std::vector<uint8_t> give(size_t most)
    {
        const auto piece = command_.out.subspan(moved).first(std::min(most, length - moved));
        const auto *bytes = reinterpret_cast<const uint8_t *>(piece.data());
        moved += piece.size();
        return {bytes, bytes + piece.size()};
    }

    // A request for data must ask for what comes next.
    void check_request(const pdu &r2t, uint32_t max_burst_length)
    {
        const auto wanted = r2t.get<uint32_t>(at::desired_length);
        if (reads || length == 0 || r2t.get<uint32_t>(at::transfer_tag) == no_tag)
            fail_protocol("data is asked for that the command does not send");
        if (r2t.get<uint32_t>(at::data_number) != units_++)
            fail_protocol("a request for data is missing");
        if (r2t.get<uint32_t>(at::buffer_offset) != moved || wanted == 0 ||
            wanted > length - moved || wanted > max_burst_length)
            fail_protocol("data is asked for that does not come next");
    }

    // A command that ends well has moved all its data, or as much as the target admits.
    void check_whole(const residual_count &rest) const
    {
        if (rest.under && (rest.over || rest.count > length))
            fail_protocol("a count of the data that is left over cannot be");
        const size_t expected = rest.under ? length - rest.count : length;
        if (!reads && (expected != length || moved != length || rest.over))
            fail_incomplete(length == 0 ? "the target has data for a command without any"
                                        : "the target did not take all data of a write");
        if (reads && moved != expected)
            fail_incomplete("the target sent " + std::to_string(moved) + " bytes of " +
                            std::to_string(expected) + " and calls it done");
        if (reads && moved < std::min(fewest_bytes(), length))
            fail_incomplete("the target sent too little data and calls it done");
    }

    const bool reads;
    const size_t length;
    size_t moved = 0;

  private:
    // The data that these commands always have, as far as their allocation length goes. A caller
    // would take zeros for what is missing.
    size_t fewest_bytes() const
    {
        constexpr uint8_t inquiry = 0x12, capacity_10 = 0x25, service_action = 0x9E, luns = 0xA0;
        constexpr size_t header = 8, standard_inquiry = 36, page_header = 4, capacity = 12;
        switch (cdb_field(0, 1)) {
        case inquiry:
            return std::min((cdb_field(1, 1) & 1) == 0 ? standard_inquiry : page_header,
                            cdb_field(3, 2));
        case capacity_10:
            return header;
        case service_action:
            return (cdb_field(1, 1) & 0x1F) == 0x10 ? std::min(capacity, cdb_field(10, 4)) : 1;
        case luns:
            return std::min(moved < header ? header : header + list_length(), cdb_field(6, 4));
        default:
            return 1;
        }
    }

    // A big-endian number. What a short CDB lacks is sent as zeros.
    size_t cdb_field(size_t at, size_t size) const
    {
        size_t value = 0;
        for (size_t i = at; i < at + size; ++i)
            value = value << 8 | (i < command_.cdb.size() ? command_.cdb[i] : 0U);
        return value;
    }

    size_t list_length() const
    {
        size_t count = 0;
        for (const std::byte byte : command_.in.first(4))
            count = count << 8 | std::to_integer<size_t>(byte);
        return count;
    }

    const scsi_command &command_;
    uint32_t units_ = 0;
};

session::session(const std::string &portal, login_names names, deadline until)
    : names_(std::move(names)), to_(portal, until)
{
    begin(until);
}

session::session(int socket, login_names names, deadline until)
    : names_(std::move(names)), to_(socket)
{
    begin(until);
}

void session::begin(deadline until)
{
    login_ = log_in(to_, names_, until);
    to_.header_digest = login_.agreed.header_digest != 0;
    to_.data_digest = login_.agreed.data_digest != 0;
}

void session::note_numbers(const pdu &unit)
{
    if (unit.get<uint32_t>(at::status_number) != login_.expected_status_number++)
        fail_protocol("a status is missing");
    const auto most = unit.get<uint32_t>(at::most_command_number);
    if (before(login_.most_command_number, most))
        login_.most_command_number = most;
}

pdu session::new_request(uint8_t operation) const
{
    pdu request;
    request.header[0] = operation;
    request.header[at::flags] = final_bit;
    request.put(at::task_tag, task_tag_);
    request.put(at::command_number, login_.command_number);
    request.put(at::expected_status_number, login_.expected_status_number);
    return request;
}

// Serves what a target may send at any time.
void session::serve(const pdu &unit, deadline until)
{
    switch (unit.operation()) {
    case nop_in: {
        const auto tag = unit.get<uint32_t>(at::transfer_tag);
        const auto most = unit.get<uint32_t>(at::most_command_number);
        if (before(login_.most_command_number, most))
            login_.most_command_number = most;
        if (tag == no_tag)
            return;
        pdu answer = new_request(nop_out | immediate);
        std::copy_n(unit.header.begin() + at::lun, 8, answer.header.begin() + at::lun);
        answer.put(at::task_tag, no_tag);
        answer.put(at::transfer_tag, tag);
        answer.data = unit.data;
        answer.data.resize(std::min<size_t>(unit.data.size(), login_.agreed.most_sent_data));
        to_.send(std::move(answer), until);
        return;
    }
    case async_message: {
        constexpr uint8_t scsi_event = 0, vendor_event = 0xFF;
        const uint8_t event = unit.header[at::async_event];
        note_numbers(unit);
        if (event != scsi_event && event != vendor_event)
            throw failure(ECONNRESET, "the target ends the session");
        return;
    }
    case reject:
        fail_protocol("it rejects a request");
    default:
        fail_protocol("an unexpected answer");
    }
}

void session::catch_up(deadline until)
{
    while (to_.has_input())
        serve(to_.receive(until), until);
}

void session::send_data(transfer &t, const pdu &request, deadline until)
{
    t.check_request(request, login_.agreed.max_burst_length);
    auto left = request.get<uint32_t>(at::desired_length);
    for (uint32_t number = 0; left != 0; ++number) {
        pdu unit = new_request(data_out);
        std::copy_n(request.header.begin() + at::lun, 8, unit.header.begin() + at::lun);
        unit.put(at::command_number, uint32_t{0}); // reserved
        unit.put(at::transfer_tag, request.get<uint32_t>(at::transfer_tag));
        unit.put(at::data_number, number);
        unit.put(at::buffer_offset, static_cast<uint32_t>(t.moved));
        unit.data = t.give(std::min(left, login_.agreed.most_sent_data));
        left -= static_cast<uint32_t>(unit.data.size());
        if (left != 0)
            unit.header[at::flags] = 0;
        to_.send(std::move(unit), until);
    }
}

command_result session::run(uint64_t lun, const scsi_command &command, deadline until)
{
    constexpr uint8_t read_bit = 0x40, write_bit = 0x20, simple = 0x01, status_bit = 0x01;
    constexpr uint8_t good = 0, condition_met = 4;

    while (before(login_.most_command_number, login_.command_number)) // the target takes none yet
        serve(to_.receive(until), until);

    transfer t(command);
    ++task_tag_;
    pdu request = new_request(scsi_request);
    request.header[at::flags] |= simple;
    if (t.length != 0)
        request.header[at::flags] |= t.reads ? read_bit : write_bit;
    request.put(at::lun, lun);
    request.put(at::transfer_length, static_cast<uint32_t>(t.length));
    std::ranges::copy(command.cdb, request.header.begin() + at::cdb);
    if (!t.reads && login_.agreed.immediate_data != 0)
        request.data =
            t.give(std::min(login_.agreed.first_burst_length, login_.agreed.most_sent_data));
    ++login_.command_number;
    to_.send(std::move(request), until);

    for (;;) {
        const pdu unit = to_.receive(until);
        const uint8_t operation = unit.operation();
        const bool own =
            operation == data_in || operation == ready_to_transfer || operation == scsi_response;
        if (!own) {
            serve(unit, until);
            continue;
        }
        if (unit.get<uint32_t>(at::task_tag) != task_tag_)
            fail_protocol("an answer to no request");
        if (operation == ready_to_transfer) {
            send_data(t, unit, until);
            continue;
        }
        const bool ends_in_data = operation == data_in && (unit.flags() & status_bit) != 0;
        if (operation == data_in)
            t.take(unit);
        if (operation != scsi_response && !ends_in_data)
            continue;

        note_numbers(unit);
        if (operation == scsi_response && unit.header[at::response] != 0)
            throw failure(EIO, "the target failed to carry out a command (response " +
                                   std::to_string(unit.header[at::response]) + ")");
        command_result result{unit.header[at::status], {}, t.moved};
        if (result.scsi_status == good || result.scsi_status == condition_met)
            t.check_whole(residual_count(unit));
        if (operation == scsi_response && unit.data.size() > 2) {
            const size_t length = size_t{unit.data[0]} << 8 | unit.data[1];
            if (length > unit.data.size() - 2)
                fail_protocol("sense data beyond its end");
            result.sense.assign(unit.data.begin() + 2,
                                unit.data.begin() + 2 + static_cast<ptrdiff_t>(length));
        }
        return result;
    }
}

// ---- Discovery --------------------------------------------------------------------------------

pdu session::receive_text(pdu request, deadline until)
{
    to_.send(std::move(request), until);
    for (;;) {
        pdu unit = to_.receive(until);
        if (unit.operation() != text_response) {
            serve(unit, until);
            continue;
        }
        if (unit.get<uint32_t>(at::task_tag) != task_tag_)
            fail_protocol("an answer to no request");
        note_numbers(unit);
        return unit;
    }
}

found_targets session::discover(size_t most_names, deadline until)
{
    constexpr std::string_view all("SendTargets=All\0", 16);
    found_targets found;
    std::set<std::string, std::less<>> known;
    std::string text; // what is not read yet

    ++task_tag_;
    pdu request = new_request(text_request);
    request.put(at::transfer_tag, no_tag);
    request.data.assign(all.begin(), all.end());
    for (;;) {
        ++login_.command_number;
        const pdu reply = receive_text(std::move(request), until);
        const bool last = (reply.flags() & (final_bit | continue_bit)) == final_bit;
        text.append(reply.data.begin(), reply.data.end());

        // A key may end in the next unit.
        const size_t whole = last ? text.size() : text.rfind('\0') + 1;
        each_key(std::string_view(text).substr(0, whole),
                 [&](std::string_view name, std::string_view value) {
                     if (name != "TargetName" || found.more)
                         return;
                     if (!is_name(value))
                         ++found.not_names;
                     else if (known.size() == most_names && !known.contains(value))
                         found.more = true;
                     else if (known.emplace(value).second)
                         found.names.emplace_back(value);
                 });
        text.erase(0, whole);
        if (last || found.more)
            return found;
        if (text.size() > most_data)
            fail_protocol("an endless text");
        const auto tag = reply.get<uint32_t>(at::transfer_tag);
        if (tag == no_tag)
            fail_protocol("a text without its end");
        request = new_request(text_request);
        request.put(at::transfer_tag, tag);
    }
}

} // namespace hostsim::iscsi
