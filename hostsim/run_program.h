// run_program.h - starts a program with the simulated host preloaded, and never without it.
#pragma once

#include "scenario_source.h"

#include <span>
#include <string>

namespace hostsim
{

inline constexpr int exit_not_started = 127;

struct run_settings {
    bool own_lsof = false; // the host's own counts the library's users
    unsigned timeout = 5;  // of real targets, in seconds
};

// The program's arguments end with a null pointer. Returns only if it does not start.
int run_program(const scenario_source &source, const run_settings &settings,
                std::span<char *> program);

} // namespace hostsim
