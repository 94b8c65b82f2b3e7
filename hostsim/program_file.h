// program_file.h - looks at a program as the kernel and the loader will.
#pragma once

#include <string>

namespace hostsim
{

// Finds the program as execvp does. Returns its path, or an empty text with errno set.
std::string find_program(const std::string &name);

// Why an object cannot be preloaded into the program. Empty: it can.
std::string preload_obstacle(const std::string &path);

} // namespace hostsim
