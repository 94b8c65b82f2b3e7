// For functions that a test program puts between the library and the platform.
#pragma once

#include "next_calls.h"

#include <cstdlib>

inline dl_find_object library; // nothing is from it before it is found

inline void find_library()
{
    if (_dl_find_object(dlsym(RTLD_DEFAULT, "VARNOK_LoadLibrary"), &library) != 0)
        abort();
}

inline bool from_library(void *caller) { return caller >= library.dlfo_map_start && caller < library.dlfo_map_end; }

#define CALLER __builtin_return_address(0)
#define FROM_LIBRARY from_library(CALLER)
