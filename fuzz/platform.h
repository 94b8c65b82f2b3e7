// platform.h - a platform that answers at once and leaves nothing behind: what every fuzz target
// runs the library on. Calls end at the simulated host, the library's fixed files lie in a private
// folder, semaphores only count, and log lines are measured and dropped. A process writes no other
// file.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace platform
{

// Stops the run here, with the line that tells what was wrong.
[[noreturn]] void fail(const char *file, int line, const char *what);
#define REQUIRE(condition) ((condition) ? void() : platform::fail(__FILE__, __LINE__, #condition))

// Where the library's shared file lies.
const std::string &shared_file();

// What the library's count of users reads.
void set_user_lines(std::string_view text);

// Frees the library, which then must hold nothing: no port, descriptor, mapping or semaphore.
void free_library();

} // namespace platform

// The fuzzer's bytes, taken from the front. Zeros follow the last one.
class bytes
{
  public:
    bytes(const uint8_t *data, size_t size) : at_(data), left_(size) {}

    bool empty() const { return left_ == 0; }
    size_t left() const { return left_; }

    uint8_t byte() { return number<uint8_t>(); }

    template <class Number>
    Number number()
    {
        Number value = 0;
        copy_to(&value, sizeof value);
        return value;
    }

    // Fills as much as there is, and tells how much that was.
    size_t copy_to(void *to, size_t size);

    std::string_view text(size_t size);

  private:
    const uint8_t *at_;
    size_t left_;
};
