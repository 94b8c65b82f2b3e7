// "health" on the command line.
#pragma once

#include "varnokctl/health.h"
#include "varnokctl/inventory.h"

namespace CLI
{
class App;
}

namespace ctl
{

CLI::App *add_health(CLI::App &app, health_request &health, inventory_request &request);

} // namespace ctl
