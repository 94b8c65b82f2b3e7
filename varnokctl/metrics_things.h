// The things of a host that have metrics, each with the labels that identify it: no two have the
// same. They are those that stay the same when the host starts again.
#pragma once

#include "varnokctl/devices.h"
#include "varnokctl/metric_text.h"
#include "varnokctl/model.h"

#include <vector>

namespace ctl
{

struct labelled_port {
    const port_entry *port; // with its information
    label_set labels;       // mac
};

struct labelled_session {
    const port_entry *port;
    const session_entry *session;
    label_set labels; // mac, target
};

struct labelled_target {
    const port_entry *port;
    const target_entry *target;
    label_set labels; // mac, target
};

struct labelled_lun {
    const port_entry *port;
    const target_entry *target;
    const lun_entry *lun;
    label_set labels; // mac, target, lun
};

struct labelled_device {
    const device_entry *device;
    label_set labels; // wwid; if that is not known, those of the LUN
};

struct labelled_things {
    std::vector<labelled_port> ports;
    std::vector<labelled_session> sessions;
    std::vector<labelled_target> targets;
    std::vector<labelled_lun> luns;
    std::vector<labelled_device> devices;
};

labelled_things label_things(const inventory &host, const std::vector<device_entry> &devices);

} // namespace ctl
