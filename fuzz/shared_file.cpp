// What lies under the shared file's name when the library joins, what others do to it meanwhile,
// and what the count of users reads when the library leaves.
#include "core/varnok_shared_db.h"
#include "platform.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>

namespace
{

constexpr size_t whole = sizeof(varnok_shared_db);
constexpr size_t most = 200000;

void write_file(const std::string &content)
{
    std::ofstream(platform::shared_file(), std::ios::binary)
        .write(content.data(), std::ssize(content));
}

std::string read_file()
{
    std::string content(std::filesystem::file_size(platform::shared_file()), '\0');
    std::ifstream(platform::shared_file(), std::ios::binary)
        .read(content.data(), std::ssize(content));
    return content;
}

// A length near one of those that matter, or any.
size_t some_length(bytes &input)
{
    constexpr size_t lengths[] = {0, 4, 32, 4148, 32960, whole, whole + 1, most};
    const uint8_t choice = input.byte();
    if (choice >= std::size(lengths))
        return input.number<uint32_t>() % most;
    const size_t length = lengths[choice] + input.byte();
    return length < 128 ? length : length - 128;
}

// The file as it must be once the slot is taken.
std::string joined(std::string content, uint8_t slot)
{
    content.resize(std::max(content.size(), whole));
    auto *db = reinterpret_cast<varnok_shared_db *>(content.data());
    const auto used = [&](uint32_t flags) { return (flags & varnok::slot_in_use) != 0; };
    const uint8_t first = static_cast<uint8_t>(
        std::find_if_not(db->libinst_flags, std::end(db->libinst_flags), used) - db->libinst_flags);
    REQUIRE(slot == first % VARNOK_LIBINST_MAX);
    if (first == VARNOK_LIBINST_MAX)
        for (uint32_t &flags : db->libinst_flags)
            flags &= ~varnok::slot_in_use;
    db->libinst_flags[slot] |= varnok::slot_claimed | varnok::slot_in_use;
    db->hbaptevq[slot] = {};
    return content;
}

void use(bytes &input, std::string content)
{
    int32_t descriptor = 0;
    REQUIRE(varnok_open_database(&descriptor) == 0 && descriptor == varnok_shm_fildes);
    content = joined(content, varnok_library_instance);
    REQUIRE(read_file() == content);

    uint32_t &flags = reinterpret_cast<varnok_shared_db *>(content.data())
                          ->libinst_flags[varnok_library_instance];
    flags &= ~(varnok::slot_claimed | varnok::slot_in_use);
    if ((input.byte() & 1) != 0) { // cut by another process
        const size_t length = some_length(input);
        std::filesystem::resize_file(platform::shared_file(), length);
        content.resize(length);
        content.resize(std::max(length, whole));
    }
    platform::set_user_lines(input.text(input.left()));
    const bool last = varnok_get_total_libinst_count() == 1;
    REQUIRE(varnok_close_database(descriptor) == 0);
    REQUIRE(std::filesystem::exists(platform::shared_file()) == !last);
    REQUIRE(last || read_file() == content);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    bytes input(data, size);
    const bool there = input.byte() != 0;
    std::string content;
    if (there) {
        content.assign(some_length(input), static_cast<char>(input.byte()));
        const size_t at = input.number<uint16_t>();
        const std::string_view given = input.text(input.byte());
        if (at < content.size())
            content.replace(at, std::min(given.size(), content.size() - at), given, 0,
                            content.size() - at);
        write_file(content);
    } else {
        std::filesystem::remove(platform::shared_file());
    }
    use(input, content);
    platform::free_library();
    return 0;
}
