#include "iscsi_connection.h"

#include "messages.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <condition_variable>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <mutex>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <system_error>
#include <thread>
#include <unistd.h>

namespace hostsim::iscsi
{
namespace
{

constexpr size_t padding_unit = 4;
constexpr auto unnoticed = std::chrono::milliseconds(700); // then a line says what is waited for

size_t padding_of(size_t length) { return (padding_unit - length % padding_unit) % padding_unit; }

constexpr std::array<uint32_t, 256> make_crc_table()
{
    constexpr uint32_t castagnoli = 0x82F63B78;
    std::array<uint32_t, 256> table{};
    for (uint32_t i = 0; i < table.size(); ++i) {
        table[i] = i;
        for (int bit = 0; bit < 8; ++bit)
            table[i] = table[i] >> 1 ^ ((table[i] & 1) != 0 ? castagnoli : 0);
    }
    return table;
}

// The digest CRC32C. It may be computed in parts.
uint32_t crc32c(std::span<const uint8_t> bytes, uint32_t before = 0)
{
    static constexpr auto table = make_crc_table();
    uint32_t crc = ~before;
    for (const uint8_t byte : bytes)
        crc = table[(crc ^ byte) & 0xFF] ^ crc >> 8;
    return ~crc;
}

// A digest stands in the unit with its lowest byte first.
std::array<uint8_t, 4> digest_bytes(uint32_t crc)
{
    return {static_cast<uint8_t>(crc), static_cast<uint8_t>(crc >> 8),
            static_cast<uint8_t>(crc >> 16), static_cast<uint8_t>(crc >> 24)};
}

// The addresses of a portal. The system's resolver knows no deadline, so a thread of its own asks
// it, and may be left behind.
class name_lookup
{
  public:
    explicit name_lookup(const std::string &portal)
    {
        const size_t colon = portal.rfind(':');
        host_ = portal.substr(0, colon);
        service_ = portal.substr(colon + 1);
        if (host_.starts_with('['))
            host_ = host_.substr(1, host_.size() - 2);
    }
    ~name_lookup()
    {
        if (found_ != nullptr)
            freeaddrinfo(found_);
    }
    name_lookup(const name_lookup &) = delete;
    name_lookup &operator=(const name_lookup &) = delete;

    // An address in numbers needs no resolver.
    bool ask(int flags)
    {
        addrinfo wanted{};
        wanted.ai_socktype = SOCK_STREAM;
        wanted.ai_flags = flags;
        addrinfo *found = nullptr;
        const int failed = getaddrinfo(host_.c_str(), service_.c_str(), &wanted, &found);
        const int error = errno;
        const std::lock_guard guard(lock_);
        failed_ = failed;
        error_ = error;
        found_ = failed == 0 ? found : nullptr;
        answered_ = true;
        changed_.notify_all();
        return failed == 0;
    }

    bool wait(deadline until)
    {
        std::unique_lock guard(lock_);
        return changed_.wait_until(guard, until, [&] { return answered_; });
    }

    void forget_answer() { answered_ = false; }

    const addrinfo *result() const
    {
        if (failed_ == EAI_SYSTEM)
            fail_by_errno(error_);
        if (failed_ != 0)
            throw failure(EHOSTUNREACH, gai_strerror(failed_));
        return found_;
    }

  private:
    std::string host_, service_;
    std::mutex lock_;
    std::condition_variable changed_;
    bool answered_ = false;
    int failed_ = 0, error_ = 0;
    addrinfo *found_ = nullptr;
};

std::shared_ptr<const name_lookup> find_addresses(const std::string &portal, deadline until)
{
    auto lookup = std::make_shared<name_lookup>(portal);
    if (lookup->ask(AI_NUMERICHOST))
        return lookup;
    lookup->forget_answer();
    sigset_t all, before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before); // the program's handlers are for its own threads
    try {
        std::thread([lookup] { lookup->ask(0); }).detach();
    } catch (const std::system_error &) {
        pthread_sigmask(SIG_SETMASK, &before, nullptr);
        fail_by_errno(EAGAIN);
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    if (!lookup->wait(std::min(until, clock::now() + unnoticed))) {
        progress::waited();
        if (!lookup->wait(until))
            throw failure(ETIMEDOUT, "the look-up of its name timed out");
    }
    return lookup;
}

} // namespace

void fail_by_errno(int error)
{
    throw failure(error, error == ETIMEDOUT ? "timed out" : std::strerror(error));
}

void fail_protocol(const std::string &what)
{
    throw failure(EPROTO, "the target breaks the protocol: " + what);
}

connection::connection(int fd) : fd_(fd), buffer_(8192) {}

connection::connection(const std::string &portal, deadline until) : connection(-1)
{
    const auto addresses = find_addresses(portal, until);
    int error = EHOSTUNREACH;
    for (const addrinfo *a = addresses->result(); a != nullptr; a = a->ai_next) {
        // An address that does not answer leaves time for the next one.
        const auto left = until - clock::now();
        const deadline share = a->ai_next == nullptr ? until : clock::now() + left / 2;
        fd_ = socket(a->ai_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
        if (fd_ < 0) {
            error = errno;
            continue;
        }
        const int on = 1;
        setsockopt(fd_, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
        socklen_t size = sizeof error;
        error = ::connect(fd_, a->ai_addr, a->ai_addrlen) == 0 ? 0 : errno;
        try {
            if (error == EINPROGRESS) {
                wait(POLLOUT, share);
                getsockopt(fd_, SOL_SOCKET, SO_ERROR, &error, &size);
            }
        } catch (const failure &f) {
            error = f.error;
        }
        if (error == 0)
            return;
        ::close(fd_);
        fd_ = -1;
    }
    fail_by_errno(error);
}

connection::~connection()
{
    if (fd_ >= 0)
        ::close(fd_);
}

bool connection::has_input() const
{
    pollfd p = {fd_, POLLIN, 0};
    return begin_ != end_ || poll(&p, 1, 0) > 0;
}

void connection::wait(short events, deadline until) const
{
    for (auto patience = std::min(until, clock::now() + unnoticed);; patience = until) {
        using std::chrono::milliseconds;
        const auto left = std::chrono::ceil<milliseconds>(patience - clock::now());
        pollfd p = {fd_, events, 0};
        const int ready = poll(&p, 1, static_cast<int>(std::max<int64_t>(left.count(), 0)));
        if (ready > 0)
            return;
        if (ready < 0 && errno != EINTR)
            fail_by_errno(errno);
        if (clock::now() >= until)
            fail_by_errno(ETIMEDOUT);
        progress::waited();
    }
}

void connection::send_all(std::span<const uint8_t> bytes, deadline until)
{
    while (!bytes.empty()) {
        // A target that takes a little at a time must not hold the command for ever.
        if (clock::now() >= until)
            fail_by_errno(ETIMEDOUT);
        const ssize_t n = ::send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (n > 0)
            bytes = bytes.subspan(static_cast<size_t>(n));
        else if (n < 0 && errno == EAGAIN)
            wait(POLLOUT, until);
        else if (n < 0 && errno != EINTR)
            fail_by_errno(errno);
    }
}

void connection::send(pdu unit, deadline until)
{
    const size_t length = unit.data.size();
    unit.put(at::ahs_length, static_cast<uint32_t>(length)); // and no additional segments

    std::vector<uint8_t> bytes(unit.header.begin(), unit.header.end());
    const auto add = [&](std::span<const uint8_t> more) {
        bytes.insert(bytes.end(), more.begin(), more.end());
    };
    if (header_digest)
        add(digest_bytes(crc32c(unit.header)));
    if (length != 0) {
        unit.data.resize(length + padding_of(length));
        add(unit.data);
        if (data_digest)
            add(digest_bytes(crc32c(unit.data)));
    }
    send_all(bytes, until);
}

void connection::read_exactly(std::span<uint8_t> into, deadline until)
{
    while (!into.empty()) {
        if (begin_ != end_) {
            const size_t n = std::min(into.size(), end_ - begin_);
            std::memcpy(into.data(), buffer_.data() + begin_, n);
            begin_ += n;
            into = into.subspan(n);
            continue;
        }
        // Nor one that sends a little at a time.
        if (clock::now() >= until)
            fail_by_errno(ETIMEDOUT);
        const bool directly = into.size() >= buffer_.size();
        const std::span<uint8_t> to = directly ? into : std::span(buffer_);
        const ssize_t n = recv(fd_, to.data(), to.size(), 0);
        if (n == 0)
            throw failure(ECONNRESET, "the target closed the connection");
        if (n > 0 && directly) {
            into = into.subspan(static_cast<size_t>(n));
        } else if (n > 0) {
            begin_ = 0;
            end_ = static_cast<size_t>(n);
        } else if (errno == EAGAIN) {
            wait(POLLIN, until);
        } else if (errno != EINTR) {
            fail_by_errno(errno);
        }
    }
}

void connection::check_digest(std::span<const uint8_t> bytes, uint32_t crc, deadline until)
{
    std::array<uint8_t, 4> given{};
    read_exactly(given, until);
    if (given != digest_bytes(crc32c(bytes, crc)))
        fail_protocol("a digest is wrong");
}

pdu connection::receive(deadline until)
{
    constexpr uint32_t length_mask = 0xFFFFFF;
    pdu unit;
    read_exactly(unit.header, until);
    std::vector<uint8_t> additional(size_t{unit.header[at::ahs_length]} * padding_unit);
    read_exactly(additional, until);
    if (header_digest)
        check_digest(additional, crc32c(unit.header), until);

    const uint32_t length = unit.get<uint32_t>(at::ahs_length) & length_mask;
    if (length > most_data)
        fail_protocol("more data in a unit than was agreed");
    unit.data.resize(length + padding_of(length));
    read_exactly(unit.data, until);
    if (data_digest && length != 0)
        check_digest(unit.data, 0, until);
    unit.data.resize(length);
    return unit;
}

} // namespace hostsim::iscsi
