// The library, loaded for as long as the object lives.
#pragma once

#include <cstdint>

#include <varnok_mgmt.h>

namespace ctl
{

class library
{
  public:
    library() : status_(VARNOK_LoadLibrary()) {}
    ~library() { VARNOK_FreeLibrary(); }
    library(const library &) = delete;
    library &operator=(const library &) = delete;

    uint32_t status() const { return status_; }

  private:
    uint32_t status_;
};

} // namespace ctl
