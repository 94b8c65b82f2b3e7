// The tool's output: what was read of a host, as text.
#pragma once

#include <string>

#include "model.h"
#include "text.h"

namespace ctl
{

// The whole host as a tree.
std::string tree_text(const host &host, const style &style);

// A record kind as a table, or with all its fields.
std::string ports_text(const host &host, const style &style);
std::string portals_text(const host &host, const style &style);
std::string sessions_text(const host &host, const style &style);
std::string targets_text(const host &host, const style &style);
std::string luns_text(const host &host, const style &style);

// Addresses that several outputs show.
std::string target_endpoint(const VARNOK_SESS_INFO &session);
std::string target_endpoint(const VARNOK_TGT_INFO &target);

} // namespace ctl
