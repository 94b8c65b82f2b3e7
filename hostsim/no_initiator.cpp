// no_initiator.cpp - stands in for initiator.cpp in a build without libiscsi. No scenario reaches
// these functions.
#include "initiator.h"

#include <cerrno>

namespace hostsim
{

const bool has_initiator = false;

class initiator_connection
{
};

real_target::real_target(portal_login login, std::string name)
    : login_(std::move(login)), name_(std::move(name))
{
}
real_target::~real_target() = default;
std::string real_target::isid() const { return {}; }
int real_target::log_in() { return ENOSYS; }
scsi_reply real_target::run(uint64_t, const scsi_command &) { return {.error = ENOSYS}; }
int discover_targets(const portal_login &, std::vector<std::string> &) { return ENOSYS; }

} // namespace hostsim
