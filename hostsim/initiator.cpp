#include "initiator.h"

#include "messages.h"
#include "scenario_source.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <netinet/in.h>
#include <optional>
#include <sys/random.h>
#include <sys/socket.h>
#include <unistd.h>

namespace hostsim
{
namespace
{

constexpr auto pause_after_failure = std::chrono::seconds(30);
constexpr size_t most_targets = 256; // of a portal; each keeps a descriptor of the program

tcp_endpoint endpoint_of(int fd, int (*ask)(int, sockaddr *, socklen_t *))
{
    sockaddr_storage storage{};
    socklen_t size = sizeof storage;
    tcp_endpoint endpoint;
    if (ask(fd, reinterpret_cast<sockaddr *>(&storage), &size) != 0)
        return endpoint;
    if (storage.ss_family == AF_INET) {
        sockaddr_in in{};
        std::memcpy(&in, &storage, sizeof in);
        endpoint.ipv4.assign(reinterpret_cast<const char *>(&in.sin_addr), sizeof in.sin_addr);
        endpoint.tcp_port = ntohs(in.sin_port);
    } else if (storage.ss_family == AF_INET6) {
        sockaddr_in6 in{};
        std::memcpy(&in, &storage, sizeof in);
        endpoint.ipv6.assign(reinterpret_cast<const char *>(&in.sin6_addr), sizeof in.sin6_addr);
        endpoint.tcp_port = ntohs(in.sin6_port);
    }
    return endpoint;
}

// "host:port" in numbers. None of a link-local address, which needs its network as well.
std::optional<std::string> address_of(int fd)
{
    const tcp_endpoint peer = endpoint_of(fd, getpeername);
    const bool on_ipv4 = !peer.ipv4.empty();
    const std::string &bytes = on_ipv4 ? peer.ipv4 : peer.ipv6;
    char text[INET6_ADDRSTRLEN] = "";
    if (bytes.empty() || bytes.starts_with("\xFE\x80") ||
        inet_ntop(on_ipv4 ? AF_INET : AF_INET6, bytes.data(), text, sizeof text) == nullptr)
        return std::nullopt;
    const std::string port = ':' + std::to_string(peer.tcp_port);
    return on_ipv4 ? text + port : '[' + std::string(text) + ']' + port;
}

// A target ends the older one of two sessions with the same ISID. So each session of each process
// has its own: a random one.
std::array<uint8_t, 6> make_isid()
{
    constexpr uint8_t random_format = 0x80;
    std::array<uint8_t, 6> isid{};
    if (getrandom(isid.data(), isid.size(), 0) < 0)
        return {random_format,
                0,
                static_cast<uint8_t>(getpid() >> 8),
                static_cast<uint8_t>(getpid()),
                0,
                0};
    isid[0] = random_format;
    return isid;
}

bool is_unit_attention(const iscsi::command_result &result)
{
    constexpr uint8_t check_condition = 2, descriptor_format = 0x72, unit_attention = 6;
    const std::vector<uint8_t> &sense = result.sense;
    if (result.scsi_status != check_condition || sense.size() < 3)
        return false;
    const uint8_t key = (sense[0] & 0x7F) >= descriptor_format ? sense[1] : sense[2];
    return (key & 0xF) == unit_attention;
}

// Whether the sense data is of a known form and says something: a key, or that a tape came to a
// mark or to its end, or that a block had another length.
bool is_usable(std::span<const uint8_t> sense)
{
    constexpr size_t shortest = 3;
    constexpr uint8_t first_form = 0x70, descriptor_form = 0x72, last_form = 0x73;
    constexpr uint8_t key_bits = 0x0F, key_and_mark_bits = 0xEF;
    if (sense.size() < shortest)
        return false;
    const uint8_t form = sense[0] & 0x7F;
    if (form < first_form || form > last_form)
        return false;
    return form < descriptor_form ? (sense[2] & key_and_mark_bits) != 0
                                  : (sense[1] & key_bits) != 0;
}

// Three commands are answered without regard to a UNIT ATTENTION, which stays pending.
bool reports_attention(const scsi_command &command)
{
    constexpr uint8_t request_sense = 0x03, inquiry = 0x12, report_luns = 0xA0;
    const uint8_t operation = command.cdb.empty() ? uint8_t{0} : command.cdb[0];
    return operation != request_sense && operation != inquiry && operation != report_luns;
}

struct status_name {
    uint8_t status;
    const char *name;
};
constexpr status_name status_names[] = {
    {0x02, "CHECK CONDITION, but no usable sense data"},
    {0x08, "BUSY"},
    {0x18, "RESERVATION CONFLICT"},
    {0x28, "TASK SET FULL"},
    {0x30, "ACA ACTIVE"},
    {0x40, "TASK ABORTED"},
};

// What is wrong with a command's end, or nothing if the caller sees how it ended.
std::string wrong_end(iscsi::command_result &result)
{
    constexpr uint8_t good = 0, check_condition = 2, condition_met = 4;
    const uint8_t status = result.scsi_status;
    if (status == check_condition && is_usable(result.sense))
        return {};
    result.sense.clear(); // it belongs to that status alone
    if (status == good || status == condition_met)
        return {};
    const auto *const known = std::ranges::find(status_names, status, &status_name::status);
    char text[100];
    snprintf(text, sizeof text, "a command ended with status %02Xh%s%s", unsigned{status},
             known == std::end(status_names) ? "" : ": ",
             known == std::end(status_names) ? "" : known->name);
    return text;
}

} // namespace

std::chrono::seconds longest_wait()
{
    constexpr long usual = 5, longest = 3600;
    const char *given = std::getenv(environment::timeout);
    const long seconds = given != nullptr ? std::strtol(given, nullptr, 10) : 0;
    return std::chrono::seconds(seconds > 0 && seconds <= longest ? seconds : usual);
}

int discover_targets(const portal_access &access, iscsi::deadline until, offered_targets &offered)
{
    const std::string where = access.port_text + ", portal " + shown(access.portal) + ": ";
    const progress line(where + "asking for its targets");
    try {
        iscsi::session discovery(access.portal, {access.initiator, {}, make_isid()}, until);
        iscsi::found_targets found = discovery.discover(most_targets, until);
        if (found.more)
            complain_once(where + "it has more than " + std::to_string(most_targets) +
                          " targets, and the others are left out");
        if (found.not_names != 0)
            complain_once(where + "it offers targets without a proper name, which are left out");
        offered.names = std::move(found.names);
        std::ranges::sort(offered.names);
        offered.address = address_of(discovery.fd()).value_or(access.portal);
        return 0;
    } catch (const iscsi::failure &f) {
        complain_once(where + f.what());
        return f.error;
    }
}

real_target::real_target(portal_access access, std::string name)
    : access_(std::move(access)), name_(std::move(name))
{
}

std::string real_target::text() const
{
    return access_.port_text + ", target " + std::to_string(number_) + ": ";
}

void real_target::log_in(iscsi::deadline until)
{
    // A child process leaves the connection to its parent.
    if (session_ != nullptr && owner_ != getpid())
        session_.reset();
    if (session_ != nullptr)
        return;
    isid_ = make_isid();
    answered_.clear();
    session_ = std::make_unique<iscsi::session>(
        access_.portal, iscsi::login_names{access_.initiator, name_, isid_}, until);
    owner_ = getpid();
    own_ = endpoint_of(session_->fd(), getsockname);
    target_ = endpoint_of(session_->fd(), getpeername);
}

// A login that failed is not tried again in the same query, and a target may lose us only so much
// time. To be told that nobody listens costs no time.
void real_target::note_failure(const iscsi::failure &f, iscsi::deadline began)
{
    const bool logged_in = session_ != nullptr;
    session_.reset();
    lost_time_ += iscsi::clock::now() - began;
    if ((!logged_in && f.error != ECONNREFUSED) || lost_time_ >= longest_wait()) {
        last_error_ = f.error;
        tried_again_ = iscsi::clock::now() + pause_after_failure;
    }
    complain_once(text() + f.what());
}

bool real_target::begin_query(uint32_t number, const std::string &address, iscsi::deadline until)
{
    const iscsi::deadline now = iscsi::clock::now();
    number_ = number;
    access_.portal = address;
    lost_time_ = {};
    tried_again_ = {};
    if (session_ == nullptr && now >= until) { // the query's time is up
        last_error_ = ETIMEDOUT;
        tried_again_ = now + pause_after_failure;
        return false;
    }
    try {
        if (session_ != nullptr && owner_ == getpid())
            session_->catch_up(std::min(until, now + longest_wait()));
    } catch (const iscsi::failure &) { // it ended in the meantime
        session_.reset();
    }
    try {
        log_in(std::min(until, now + longest_wait()));
    } catch (const iscsi::failure &f) {
        note_failure(f, now);
    }
    return session_ != nullptr;
}

// A new session answers its first command to each LUN with UNIT ATTENTION, which an initiator does
// not pass on. Any later one is news for the caller.
scsi_reply real_target::run(uint64_t lun, const scsi_command &command)
{
    constexpr int most_attentions = 4;
    const iscsi::deadline began = iscsi::clock::now(), until = began + longest_wait();
    if (session_ == nullptr && began < tried_again_)
        return {last_error_};
    const progress line(text() + "waiting for an answer");
    try {
        if (session_ != nullptr && owner_ == getpid())
            session_->catch_up(until);
    } catch (const iscsi::failure &) { // it ended since the last command
        session_.reset();
    }
    scsi_reply reply;
    try {
        log_in(until);
        for (int i = 0; i < most_attentions; ++i) {
            reply.result = session_->run(lun, command, until);
            if (!is_unit_attention(reply.result) || answered_.contains(lun))
                break;
        }
        if (reports_attention(command))
            answered_.insert(lun);
        const std::string wrong = wrong_end(reply.result);
        if (!wrong.empty()) {
            complain_once(text() + wrong);
            reply.error = EIO;
        }
    } catch (const iscsi::failure &f) {
        note_failure(f, began);
        reply = {f.error};
    }
    return reply;
}

} // namespace hostsim
