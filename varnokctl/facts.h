// What the tree and the picture of a host say about each record.
#pragma once

#include "varnokctl/model.h"
#include "varnokctl/text.h"

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace ctl
{

constexpr const char *targets_not_readable = "targets not readable";
constexpr const char *luns_not_readable = "LUNs not readable";

// Those that were read. Nothing where none was read, and there may be some.
struct host_counts {
    size_t ports;
    std::optional<size_t> targets, luns;
};

host_counts counts_of(const inventory &host);

// "5 ports", "5 targets", "13 LUNs"
std::vector<std::string> host_facts(const inventory &host);

// "10.20.0.11:3260": the target's address by its session or, if that was not read, by itself.
std::string target_address(const port_entry &port, const target_entry &target);

// "5 LUNs" or "LUNs not readable"
std::string lun_count(const target_entry &target);

// "LUN 0", "disk", "500.0 GiB" and "MOLVAR HALCYON DISK", and the WWID where the style has the
// identity. All but the first may be empty.
std::vector<std::string> lun_facts(const lun_entry &lun, const output_style &style);

} // namespace ctl
