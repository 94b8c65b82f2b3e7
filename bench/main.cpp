// main.cpp - varnok_bench calls|growth OPTIONS... runs one of the two sets. The names are
// "side/driver/call": bench/report.py puts the sides beside each other.
#include "bench.h"
#include "records/varnok_driver_records.h"

#include <benchmark/benchmark.h>
#include <cstdlib>
#include <cstring>
#include <malloc.h>

namespace
{

// The allocator's thresholds follow the largest block given back: every side starts where a
// process is after its first command to a native driver.
void settle_allocator() { free(calloc(1, sizeof(varnok_drv_scsi_cmd_cb))); }

// What is measured is the library, not the kernel's fresh pages: memory stays with the process.
void keep_memory()
{
    constexpr int most = 32 << 20;
    mallopt(M_MMAP_THRESHOLD, most);
    mallopt(M_TRIM_THRESHOLD, 8 * most);
}

} // namespace

int main(int argc, char **argv)
{
    if (argc > 1 && strcmp(argv[1], "calls") == 0) {
        settle_allocator();
        bench::add_calls();
    } else {
        keep_memory();
        bench::add_growth();
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return EXIT_SUCCESS;
}
