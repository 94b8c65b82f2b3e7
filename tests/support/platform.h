// platform.h - stands between the library and the platform: counts, records and fails the calls
// that the library makes, and keeps account of what it holds. Calls of everything else pass through
// untouched.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace platform
{

// Forgets counts, records and faults, and sends the library's fixed files to a private folder.
void reset();

// The n-th call (from 1, since the last of these) fails.
void fail_allocation(long nth);
void fail_call(long nth, int err);
void fail_call(const std::string &name, long nth, int err);

// Whether the fault has been met. A sweep ends with the first run that does not meet it.
bool fault_met();

// The calls since reset, in order: "open /tmp/varnok_shared.dat 2", "semop -1", "close".
const std::vector<std::string> &calls();

// What the library holds.
long live_blocks();
long open_descriptors();
long held_semaphores();

// Where a fixed file of the library really lies.
std::string private_path(const std::string &path);

// What the library's lsof pipeline prints: "2\n" after reset.
void set_user_lines(const std::string &text);

// As on a file system that keeps no owners.
void show_every_file_as(long user);

// The file is gone when the library first looks at what it opened.
void unlink_before_fstat(const std::string &path);

// Runs at each fault, and may set the next one.
void when_it_fails(const std::function<void()> &run);

// Runs at each step of a wait, in place of the library's clock going on.
void when_it_sleeps(const std::function<void()> &run);

} // namespace platform
