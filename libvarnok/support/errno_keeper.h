// errno_keeper.h - puts errno back at the end of a scope, so that a line about a failure can still
// name it.
#pragma once

#include <cerrno>

namespace varnok
{

class errno_keeper
{
  public:
    errno_keeper() = default;
    errno_keeper(const errno_keeper &) = delete;
    errno_keeper &operator=(const errno_keeper &) = delete;
    ~errno_keeper() { errno = kept_; }

  private:
    int kept_ = errno;
};

} // namespace varnok
