// sem_set.h - what a semaphore set that lies under a fixed key is: whose, and whether it ever had a
// value.
#pragma once

#include <cerrno>
#include <cstdint>

namespace varnok
{

// A strange set was made by neither root nor this process's user, or has several semaphores. It is
// unknown when the set is gone or the host does not tell.
enum class set_origin { trusted, strange, unknown };
set_origin origin_of(int32_t sem_id);

// Only root may: false with errno otherwise. True also when the set is gone already.
bool remove_strange_set(int32_t sem_id);

bool give_first_value(int32_t sem_id);

// What an operation on a set that was removed fails with.
inline bool is_gone(int err) { return err == EINVAL || err == EIDRM; }

// A set without a first value has a creator that is about to give it one, or that died. Waits for
// the value, and ten seconds after the set was made gives it. False, at once, for a set that had
// its value; true when there was something to wait for: the key is looked up again then.
//
// Whoever waited on such a set by semop would wait for ever.
bool see_through_birth(int32_t sem_id);

} // namespace varnok
