// next_calls.h - for programs that define functions in place of the C library's.
#pragma once

#include <cstdarg>
#include <dlfcn.h>

// The C library's function of that name.
#define REAL(name) reinterpret_cast<decltype(&::name)>(dlsym(RTLD_NEXT, #name))

// Makes a declaration that reads the arguments after the last named one with va_arg(rest, type).
#define FROM_REST(last, declaration)                                                               \
    va_list rest;                                                                                  \
    va_start(rest, last);                                                                          \
    declaration;                                                                                   \
    va_end(rest)
