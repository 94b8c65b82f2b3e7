// platform.h - a host whose drivers answer at once, from records made beforehand: what is left is
// the library's own time. Its functions stand under the platform's names for whatever this program
// opens.
#pragma once

#include <cstdint>
#include <string>

namespace bench
{

struct driver {
    const char *name;
    bool native;
    uint16_t device_id;
};

inline constexpr driver drivers[] = {
    {"rovani", true, 0x2E35},
    {"tepli", false, 0x2E35},
    {"pelt", true, 0x7A24},
    {"dxo", false, 0x7A24},
};

struct scene {
    const driver *which;
    uint32_t ports;
    uint32_t sessions;
    uint32_t luns;
};

// What the process sees from now on.
void show(const scene &s);

// Where the library's shared file really lies.
const std::string &shared_file();

// The real pipeline that counts the library's users, or an answer without one.
void count_users_for_real(bool real);

} // namespace bench
