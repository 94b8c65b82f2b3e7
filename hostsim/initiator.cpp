#include "initiator.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <iscsi/iscsi.h>
#include <iscsi/scsi-lowlevel.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

namespace hostsim
{
namespace
{

using clock = std::chrono::steady_clock;

constexpr auto longest_step = std::chrono::seconds(5);
constexpr int syn_retries = 2;
constexpr uint32_t enterprise = 0x4D4C56; // part of the ISID

// The result of one asynchronous step. It outlives the context, which reports steps that it
// cancels.
struct step {
    bool done = false;
    int status = 0;
    std::vector<std::string> names;

    void begin()
    {
        done = false;
        status = SCSI_STATUS_ERROR;
    }
};

void finish(iscsi_context *, int status, void *, void *state)
{
    auto *s = static_cast<step *>(state);
    s->done = true;
    s->status = status;
}

void finish_discovery(iscsi_context *context, int status, void *list, void *state)
{
    finish(context, status, list, state);
    if (status != SCSI_STATUS_GOOD)
        return;
    for (auto *a = static_cast<iscsi_discovery_address *>(list); a != nullptr; a = a->next)
        static_cast<step *>(state)->names.emplace_back(a->target_name);
}

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

bool is_unit_attention(const std::vector<uint8_t> &sense)
{
    constexpr uint8_t descriptor_format = 0x72, unit_attention = 6;
    if (sense.size() < 3)
        return false;
    const uint8_t key = (sense[0] & 0x7F) >= descriptor_format ? sense[1] : sense[2];
    return (key & 0xF) == unit_attention;
}

} // namespace

const bool has_initiator = true;

// A context, and the step that it is at.
class initiator_connection
{
  public:
    explicit initiator_connection(const portal_login &login)
        : context_(iscsi_create_context(login.initiator.c_str()))
    {
        if (context_ == nullptr)
            return;
        iscsi_set_noautoreconnect(context_, 1);
        iscsi_set_tcp_syncnt(context_, syn_retries);
        iscsi_set_isid_en(context_, enterprise, login.session);
        const char *user = std::getenv("VARNOK_CHAP_USER");
        const char *secret = std::getenv("VARNOK_CHAP_SECRET");
        if (user != nullptr && secret != nullptr)
            iscsi_set_initiator_username_pwd(context_, user, secret);
    }
    ~initiator_connection()
    {
        if (context_ != nullptr)
            iscsi_destroy_context(context_);
    }
    initiator_connection(const initiator_connection &) = delete;
    initiator_connection &operator=(const initiator_connection &) = delete;

    iscsi_context *get() { return context_; }

    // Starts a step and serves the connection until the step ends. Returns 0, or an errno.
    template <class Start>
    int run(Start start)
    {
        step_.begin();
        if (context_ == nullptr)
            return ENOMEM;
        if (start(&step_) != 0)
            return ECONNREFUSED;
        const auto deadline = clock::now() + longest_step;
        while (!step_.done) {
            pollfd p = {iscsi_get_fd(context_), static_cast<short>(iscsi_which_events(context_)),
                        0};
            if (clock::now() > deadline)
                return ETIMEDOUT;
            if (poll(&p, 1, 100) < 0 && errno != EINTR)
                return EIO;
            if (p.revents != 0 && iscsi_service(context_, p.revents) < 0)
                return ECONNRESET;
        }
        return 0;
    }

    // The step must also end well, or the error is returned.
    template <class Start>
    int run_to_success(Start start, int error)
    {
        const int failed = run(start);
        return failed != 0 ? failed : step_.status == SCSI_STATUS_GOOD ? 0 : error;
    }

    int log_in(const portal_login &login)
    {
        const auto connect = [&](step *s) {
            return iscsi_connect_async(context_, login.portal.c_str(), finish, s);
        };
        if (const int failed = run_to_success(connect, ECONNREFUSED))
            return failed;
        return run_to_success([&](step *s) { return iscsi_login_async(context_, finish, s); },
                              EACCES);
    }

    const std::vector<std::string> &found_names() const { return step_.names; }

  private:
    step step_; // outlives the context
    iscsi_context *context_;
};

int discover_targets(const portal_login &login, std::vector<std::string> &names)
{
    initiator_connection connection(login);
    if (connection.get() == nullptr)
        return ENOMEM;
    iscsi_set_session_type(connection.get(), ISCSI_SESSION_DISCOVERY);
    if (const int failed = connection.log_in(login))
        return failed;
    const auto discover = [&](step *s) {
        return iscsi_discovery_async(connection.get(), finish_discovery, s);
    };
    if (const int failed = connection.run_to_success(discover, EIO))
        return failed;
    names = connection.found_names();
    std::sort(names.begin(), names.end());
    return 0;
}

real_target::real_target(portal_login login, std::string name)
    : login_(std::move(login)), name_(std::move(name))
{
}

real_target::~real_target() = default;

std::string real_target::isid() const
{
    char text[13];
    snprintf(text, sizeof text, "40%06x%04x", enterprise, unsigned{login_.session});
    return text;
}

int real_target::log_in()
{
    if (connection_ != nullptr)
        return 0;
    auto connection = std::make_unique<initiator_connection>(login_);
    if (connection->get() == nullptr)
        return ENOMEM;
    iscsi_set_targetname(connection->get(), name_.c_str());
    iscsi_set_session_type(connection->get(), ISCSI_SESSION_NORMAL);
    if (const int failed = connection->log_in(login_))
        return failed;
    own_ = endpoint_of(iscsi_get_fd(connection->get()), getsockname);
    target_ = endpoint_of(iscsi_get_fd(connection->get()), getpeername);
    connection_ = std::move(connection);
    return 0;
}

// A new session answers its first commands with UNIT ATTENTION, which an initiator does not pass
// on.
scsi_reply real_target::run(uint64_t wire_lun, const scsi_command &command)
{
    constexpr int most_attentions = 4;
    scsi_reply reply;
    for (int i = 0; i < most_attentions; ++i) {
        reply = try_once(wire_lun, command);
        if (reply.error != 0 || !is_unit_attention(reply.sense))
            break;
    }
    return reply;
}

scsi_reply real_target::try_once(uint64_t wire_lun, const scsi_command &command)
{
    constexpr unsigned first_level = 48;
    scsi_reply reply;
    if ((reply.error = log_in()) != 0)
        return reply;

    const bool out = !command.out.empty();
    const size_t length = out ? command.out.size() : command.in.size();
    scsi_task *const task = scsi_create_task(static_cast<int>(command.cdb.size()),
                                             const_cast<unsigned char *>(command.cdb.data()),
                                             out           ? SCSI_XFER_WRITE
                                             : length != 0 ? SCSI_XFER_READ
                                                           : SCSI_XFER_NONE,
                                             static_cast<int>(length));
    iscsi_data data = {length, const_cast<unsigned char *>(
                                   reinterpret_cast<const unsigned char *>(command.out.data()))};
    reply.error = task == nullptr ? ENOMEM : connection_->run([&](step *s) {
        return iscsi_scsi_command_async(connection_->get(),
                                        static_cast<int>(wire_lun >> first_level), task, finish,
                                        out ? &data : nullptr, s);
    });
    if (reply.error == 0 && task->status > 0xFF) // statuses of libiscsi: cancelled, timed out, lost
        reply.error = ECONNRESET;
    if (reply.error != 0) {
        connection_.reset(); // before its task
    } else if (task->status == SCSI_STATUS_CHECK_CONDITION) {
        reply.scsi_status = SCSI_STATUS_CHECK_CONDITION;
        const auto *sense = task->datain.data; // two bytes of length, then the sense
        if (task->datain.size > 2)
            reply.sense.assign(sense + 2, sense + task->datain.size);
    } else {
        reply.scsi_status = static_cast<uint8_t>(task->status);
        reply.moved =
            out ? length : std::min<size_t>(static_cast<size_t>(task->datain.size), length);
        if (!out && reply.moved != 0)
            std::memcpy(command.in.data(), task->datain.data, reply.moved);
    }
    if (task != nullptr)
        scsi_free_scsi_task(task);
    return reply;
}

} // namespace hostsim
