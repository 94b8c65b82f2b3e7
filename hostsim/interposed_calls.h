// interposed_calls.h - the calls that reach a driver, defined in place of the C library's and the
// management library's. One source of a program includes this. Before, it names what answers them:
// `namespace answers = hostsim::calls;`, or functions of its own of that form. It may also define
// ANSWER, which then stands around every answer.
#pragma once

#include "next_calls.h"
#include "vmkapi_mgmt_lib.h"

#include <string>
#include <sys/utsname.h>
#include <unistd.h>

#ifndef ANSWER
#define ANSWER(name, argument, answer) (answer)
#endif

#pragma GCC visibility push(default)
// NOLINTBEGIN(misc-definitions-in-headers): one source of a program includes this
extern "C" {

int ioctl(int fd, unsigned long code, ...) noexcept
{
    FROM_REST(code, void *const argument = va_arg(rest, void *));
    return ANSWER("ioctl", "", answers::ioctl(fd, code, argument));
}

int uname(struct utsname *name) noexcept { return ANSWER("uname", "", answers::uname(name)); }

uid_t geteuid() noexcept { return answers::geteuid(); }

int vmk_MgmtUserInit(vmk_MgmtApiSignature *signature, vmk_uint64, vmk_MgmtUserHandle *handle)
{
    return ANSWER("vmk_init", signature->name.string, answers::mgmt_init(signature, handle));
}

int vmk_MgmtUserCallbackInvokeInt(vmk_MgmtUserHandle handle, vmk_uint64 instance, vmk_uint64 id,
                                  vmk_uint32 count, ...)
{
    FROM_REST(count, void *const envelope = count == 1 ? va_arg(rest, void *) : nullptr);
    return ANSWER("vmk_invoke", std::to_string(id),
                  answers::mgmt_invoke(handle, instance, id, count, envelope));
}
}
// NOLINTEND(misc-definitions-in-headers)
#pragma GCC visibility pop
