// bench.h - what each file of measurements adds to the run.
#pragma once

namespace bench
{

void add_calls();
void add_growth();

} // namespace bench
