// next_calls.h - for programs that put functions of their own before the C library's.
#pragma once

#include <cstdarg>
#include <dlfcn.h>

// The function that stands behind the program's own of the same name.
#define REAL(name) reinterpret_cast<decltype(&::name)>(dlsym(RTLD_NEXT, #name))

// Declares what takes its value from the arguments after the last named one, with va_arg(rest, …).
#define FROM_REST(last, declaration)                                                               \
    va_list rest;                                                                                  \
    va_start(rest, last);                                                                          \
    declaration;                                                                                   \
    va_end(rest)
