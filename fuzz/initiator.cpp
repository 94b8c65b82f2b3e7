// What an iSCSI target sends: through a login to the end of a discovery, or of some commands.
#include "iscsi_session.h"
#include "platform.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

namespace
{

constexpr std::array<uint8_t, 6> isid = {0x80, 1, 2, 3, 4, 5}; // also that of the corpus
constexpr size_t most_names = 8;

// A command returns data only as it was asked for. It leaves the byte behind its data alone.
void run(hostsim::iscsi::session &session, std::span<const uint8_t> cdb, size_t in, size_t out,
         hostsim::iscsi::deadline until)
{
    constexpr std::byte mark{0xA5};
    std::vector<std::byte> data(in + out + 1, mark);
    const std::span<std::byte> all(data);
    const auto result =
        session.run(0, {cdb, all.first(in), std::span<const std::byte>(data).first(out)}, until);
    REQUIRE(result.moved <= in + out && data.back() == mark);
    REQUIRE(result.scsi_status != 0 || in == 0 || result.moved != 0);
    REQUIRE(result.scsi_status != 0 || result.moved == out || in != 0);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    using hostsim::iscsi::clock;
    std::array<int, 2> ends{};
    const size_t most = 100000; // what the socket holds at least
    REQUIRE(socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, ends.data()) == 0);
    setenv("VARNOK_CHAP_USER", "user", 1);
    setenv("VARNOK_CHAP_SECRET", "a secret", 1);
    bytes input(data, size);
    const uint8_t mode = input.byte();
    const bool discovery = (mode & 1) != 0, catches_up = (mode & 2) != 0;
    const std::string_view stream = input.text(std::min(input.left(), most));
    REQUIRE(write(ends[1], stream.data(), stream.size()) == std::ssize(stream));
    shutdown(ends[1], SHUT_WR);
    const auto until = clock::now() + std::chrono::milliseconds(100);
    try {
        hostsim::iscsi::session session(ends[0], {"iqn.us", discovery ? "" : "iqn.it", isid},
                                        until);
        if (discovery) {
            const auto found = session.discover(most_names, until);
            REQUIRE(found.names.size() <= most_names);
        } else {
            run(session, std::array<uint8_t, 6>{0x12, 0, 0, 0, 36}, 36, 0, until);
            if (catches_up) // all units are there from the beginning
                session.catch_up(until);
            run(session, std::array<uint8_t, 10>{0x2A, 0, 0, 0, 0, 0, 0, 0, 200}, 0, 102400, until);
            run(session, std::array<uint8_t, 6>{}, 0, 0, until);
            run(session, std::array<uint8_t, 10>{0x28, 0, 0, 0, 0, 0, 0, 0, 4}, 2048, 0, until);
        }
    } catch (const hostsim::iscsi::failure &) {
    }
    close(ends[1]);
    return 0;
}
