// growth.cpp - how the time of discovery, lookups and lists grows with what there is to list.
#include "bench.h"
#include "subject.h"

#include <benchmark/benchmark.h>
#include <cstdlib>
#include <ctime>

namespace
{

using namespace bench;

constexpr uint32_t most_ports = 4096;
constexpr uint32_t most_entries = 1024;
constexpr uint32_t most_luns = 2047;

template <class Record>
std::vector<Record> room(size_t count)
{
    std::vector<Record> list(count);
    list[0].Version = VARNOK_RECORD_VERSION_2;
    return list;
}

uint32_t argument(const benchmark::State &state) { return static_cast<uint32_t>(state.range(0)); }

double processor_time()
{
    timespec t = {};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
    return static_cast<double>(t.tv_sec) + 1e-9 * static_cast<double>(t.tv_nsec);
}

// The allocator joins what was freed in small blocks when it is asked for a large one.
void join_free_memory()
{
    void *volatile block = malloc(size_t{1} << 20);
    free(block);
}

// A turn discovers as many ports whatever the size, in hosts one after the other, and times that
// alone: both sizes find the allocator and the caches alike. What it found is given back off the
// clock.
template <class Discover, class Forget>
void measure_discovery(benchmark::State &state, size_t which, Discover discover, Forget forget)
{
    show({&drivers[which], argument(state), 1, 1});
    for ([[maybe_unused]] auto turn : state) {
        const double start = processor_time();
        for (uint32_t host = 0; host < most_ports / argument(state); ++host)
            discover(host);
        state.SetIterationTime(processor_time() - start);
        for (uint32_t host = 0; host < most_ports / argument(state); ++host)
            forget(host);
        join_free_memory();
    }
}

void discover(benchmark::State &state, size_t which)
{
    struct lists {
        varnok_Dlist *ports;
        varnok_Dlist *functions;
    };
    const library &l = with_log();
    std::vector<lists> hosts(most_ports / argument(state));
    measure_discovery(
        state, which,
        [&](uint32_t host) {
            uint32_t ports = 0;
            l.discover[which](drivers[which].name, &ports);
            hosts[host] = {*l.ports, *l.functions};
            *l.ports = *l.functions = nullptr;
        },
        [&](uint32_t host) {
            *l.ports = hosts[host].ports;
            *l.functions = hosts[host].functions;
            l.forget_ports();
            l.forget_functions();
        });
}

void discover_bare(benchmark::State &state, size_t which)
{
    std::vector<floor::host> hosts(most_ports / argument(state));
    measure_discovery(
        state, which, [&](uint32_t host) { floor::discover(hosts[host], drivers[which]); },
        [&](uint32_t host) { floor::forget(hosts[host]); });
}

template <class Run>
void measure_on_open_port(benchmark::State &state, const scene &s, Run run)
{
    through_library side(with_log(), s);
    side.load();
    side.open();
    for ([[maybe_unused]] auto turn : state) {
        run(side);
        benchmark::ClobberMemory();
    }
    side.free();
}

void load(benchmark::State &state, const driver &d)
{
    through_library side(with_log(), {&d, argument(state), 1, 1});
    for ([[maybe_unused]] auto turn : state) {
        side.load();
        side.free();
    }
}

void look_up_last(benchmark::State &state, const driver &d)
{
    VARNOK_ISCSI_PORTAL portal = {};
    measure_on_open_port(state, {&d, argument(state), 1, 1},
                         [&](through_library &side) { side.portal(&portal); });
}

void open_all(benchmark::State &state, const driver &d)
{
    const uint32_t ports = argument(state);
    const library &l = with_log();
    show({&d, ports, 1, 1});
    l.load();
    for ([[maybe_unused]] auto turn : state) {
        uint32_t handle = 0;
        for (uint32_t i = 0; i < ports; ++i)
            l.open(i, &handle);
        for (uint32_t i = 0; i < ports; ++i)
            l.close(i + 1);
    }
    l.free();
}

void list_sessions(benchmark::State &state, const driver &d)
{
    auto list = room<VARNOK_SESS_INFO>(argument(state));
    measure_on_open_port(state, {&d, 1, argument(state), 1}, [&](through_library &side) {
        side.sessions(list.data(), argument(state));
    });
}

void list_targets(benchmark::State &state, const driver &d)
{
    auto list = room<VARNOK_TGT_INFO>(argument(state));
    measure_on_open_port(state, {&d, 1, argument(state), 1}, [&](through_library &side) {
        side.targets(list.data(), argument(state));
    });
}

void list_luns(benchmark::State &state, const driver &d)
{
    auto list = room<VARNOK_LUN_INFO>(argument(state));
    measure_on_open_port(state, {&d, 1, 1, argument(state)},
                         [&](through_library &side) { side.luns(list.data(), argument(state)); });
}

void add(const char *what, const driver &d, uint32_t most,
         void (*measure)(benchmark::State &, const driver &))
{
    const std::string name = std::string("growth/") + d.name + "/" + what;
    auto *const added = benchmark::RegisterBenchmark(
        name.c_str(), [measure, &d](benchmark::State &state) { measure(state, d); });
    for (uint32_t n = 1; n < most; n *= 4)
        added->Arg(n);
    added->Arg(most);
}

void add_discovery(const char *side, size_t which, void (*measure)(benchmark::State &, size_t))
{
    const std::string name = std::string(side) + "/" + drivers[which].name + "/discovery";
    benchmark::RegisterBenchmark(
        name.c_str(), [measure, which](benchmark::State &state) { measure(state, which); })
        ->Arg(64)
        ->Arg(most_ports)
        ->UseManualTime();
}

} // namespace

void bench::add_growth()
{
    for (size_t i = 0; i < std::size(drivers); ++i) {
        add_discovery("library", i, discover);
        add_discovery("floor", i, discover_bare);
    }
    // The drivers of a kind are twins: the newer generation's speak for all.
    for (const driver *d : {&drivers[2], &drivers[3]}) {
        add("load and free, by ports", *d, most_ports, load);
        add("one call on the last port, by ports", *d, most_ports, look_up_last);
        add("open and close every port, by ports", *d, most_ports, open_all);
        add("sessions of a port, by sessions", *d, most_entries, list_sessions);
        add("targets of a port, by targets", *d, most_entries, list_targets);
        add("LUNs of a target, by LUNs", *d, most_luns, list_luns);
    }
}
