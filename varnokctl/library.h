// Keeps the library loaded for as long as the object lives.
#pragma once

#include "varnok_mgmt.h"

#include <cstdint>

namespace ctl
{

class loaded_library
{
  public:
    loaded_library() : status_(VARNOK_LoadLibrary()) {}
    ~loaded_library() { VARNOK_FreeLibrary(); }
    loaded_library(const loaded_library &) = delete;
    loaded_library &operator=(const loaded_library &) = delete;

    uint32_t status() const { return status_; }

  private:
    uint32_t status_;
};

} // namespace ctl
