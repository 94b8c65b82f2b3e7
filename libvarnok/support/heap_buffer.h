// heap_buffer.h - zero-filled heap memory for the length of a scope. Test it before use: an
// allocation that fails is a status, not an exception.
#pragma once

#include "support/errno_keeper.h"

#include <cstddef>
#include <cstdlib>

namespace varnok
{

template <class T>
class heap_buffer
{
  public:
    explicit heap_buffer(size_t count = 1) : data_(static_cast<T *>(calloc(count, sizeof(T)))) {}
    heap_buffer(const heap_buffer &) = delete;
    heap_buffer &operator=(const heap_buffer &) = delete;
    ~heap_buffer() { release(); }

    // Gives the memory back before the scope ends.
    void release()
    {
        const errno_keeper keeper;
        free(data_);
        data_ = nullptr;
    }

    explicit operator bool() const { return data_ != nullptr; }
    T *get() const { return data_; }
    T *operator->() const { return data_; }
    T &operator*() const { return *data_; }

  private:
    T *data_;
};

} // namespace varnok
