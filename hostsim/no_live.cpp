// no_live.cpp - a build without an iSCSI initiator: no scenario gets as far as this.
#include <cerrno>

#include "live.h"

namespace hostsim
{

const bool has_initiator = false;

class live_connection
{
};

live_target::live_target(live_login login, std::string name)
    : login_(std::move(login)), name_(std::move(name))
{
}
live_target::~live_target() = default;
std::string live_target::isid() const { return {}; }
int live_target::log_in() { return ENOSYS; }
live_reply live_target::run(uint64_t, const scsi_command &) { return {.error = ENOSYS}; }
int discover_targets(const live_login &, std::vector<std::string> &) { return ENOSYS; }

} // namespace hostsim
