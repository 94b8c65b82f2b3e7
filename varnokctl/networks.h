// Which ports lead to the same place.
#pragma once

#include "varnokctl/model.h"
#include "varnokctl/text.h"

#include <map>
#include <set>
#include <string>
#include <vector>

namespace ctl
{

// Places by their names: "10.20.30.0/24", "2001:db8:20:30::/64" or a target's name.
using place_set = std::set<std::string>;

// The library does not tell masks. So addresses of one network are those that share their first 24
// bits or, with IPv6, their first 64. Link-local addresses are of no network.
class port_places
{
  public:
    port_places(const inventory &host, const output_style &style);

    // Ports by the places where they are and those that they have sessions to. A port stands once
    // in a list, and the lists are in the order of the ports.
    const std::map<std::string, std::vector<const port_entry *>> &all() const { return places_; }

    // The other ports that lead where the port's session to this target leads.
    std::vector<const port_entry *> others(const port_entry &port,
                                           const target_entry &target) const;

  private:
    output_style style_;
    std::map<std::string, std::vector<const port_entry *>> places_;
};

// "port 1", "ports 1 and 2"; of many ports only the first.
std::string port_list(const std::vector<const port_entry *> &ports);

} // namespace ctl
