// calls.cpp - every public call on every back-end: through the library, through the library without
// its log calls, and bare.
#include "bench.h"
#include "subject.h"

#include <benchmark/benchmark.h>

namespace
{

using namespace bench;

constexpr uint32_t entries = 4; // ports, sessions and LUNs

// The records of one caller, made once.
struct records {
    uint8_t text[16];
    uint32_t count;
    VARNOK_PHY_PORT_INFO port;
    VARNOK_ISCSI_PORTAL portal;
    VARNOK_SESS_INFO sessions[entries];
    VARNOK_TGT_INFO targets[entries];
    VARNOK_LUN_INFO luns[entries];
    VARNOK_SCSI_CMND command;
    uint8_t data[4096];
};

void prepare(records &r)
{
    r = {};
    r.port.Version = VARNOK_RECORD_VERSION_2;
    r.luns[0].Version = VARNOK_RECORD_VERSION_2;
    r.command.CDBLength = 10;
    r.command.SenseLength = sizeof r.command.Sense;
}

void prepare_transfer(records &r, uint8_t direction, uint8_t operation)
{
    r.command.Direction = direction;
    r.command.CDB[0] = operation;
}

// A call, and what it wants to be done before.
template <class Side>
struct call {
    const char *name;
    bool on_open_port;
    void (*before)(records &r);
    void (*run)(Side &side, records &r);
};

template <class Side>
void nothing(records &)
{
}

template <class Side>
const call<Side> *calls_of(size_t &count)
{
    constexpr auto no = nothing<Side>;
    static const call<Side> calls[] = {
        {"LoadLibrary + FreeLibrary", false, no,
         [](Side &s, records &) {
             s.load();
             s.free();
         }},
        {"GetVersion", true, no, [](Side &s, records &r) { s.version(r.text); }},
        {"GetPortCount", true, no, [](Side &s, records &r) { s.port_count(&r.count); }},
        {"OpenAdapter + CloseAdapter", true, no,
         [](Side &s, records &) {
             s.close();
             s.open();
         }},
        {"GetPhyPortInfo", true, no, [](Side &s, records &r) { s.phy_port(&r.port); }},
        {"GetIscsiPortal", true, no, [](Side &s, records &r) { s.portal(&r.portal); }},
        {"GetSessionInfo", true, no, [](Side &s, records &r) { s.sessions(r.sessions, entries); }},
        {"GetTgtInfo", true, no, [](Side &s, records &r) { s.targets(r.targets, entries); }},
        {"GetLunInfo", true, no, [](Side &s, records &r) { s.luns(r.luns, entries); }},
        {"SendScsiCommand, no data", true,
         [](records &r) { prepare_transfer(r, VARNOK_SCSI_NO_DATA, 0x00); },
         [](Side &s, records &r) { s.scsi(&r.command, 0, nullptr); }},
        {"SendScsiCommand, 4 KiB in", true,
         [](records &r) { prepare_transfer(r, VARNOK_SCSI_DATA_IN, 0x28); },
         [](Side &s, records &r) { s.scsi(&r.command, sizeof r.data, r.data); }},
        {"SendScsiCommand, 4 KiB out", true,
         [](records &r) { prepare_transfer(r, VARNOK_SCSI_DATA_OUT, 0x2A); },
         [](Side &s, records &r) { s.scsi(&r.command, sizeof r.data, r.data); }},
    };
    count = std::size(calls);
    return calls;
}

template <class Side>
void measure(benchmark::State &state, Side side, const call<Side> &c)
{
    static records r;
    prepare(r);
    c.before(r);
    if (c.on_open_port) {
        side.load();
        side.open();
    }
    for ([[maybe_unused]] auto turn : state) {
        c.run(side, r);
        benchmark::ClobberMemory();
    }
    if (c.on_open_port)
        side.free();
}

template <class Side, class Make>
void add_side(const char *name, Make make)
{
    size_t count = 0;
    const call<Side> *const calls = calls_of<Side>(count);
    for (const driver &d : drivers)
        for (const call<Side> *c = calls; c != calls + count; ++c) {
            const scene s = {&d, entries, entries, entries};
            const std::string full = std::string(name) + "/" + d.name + "/" + c->name;
            benchmark::RegisterBenchmark(full.c_str(), [c, s, make](benchmark::State &state) {
                measure<Side>(state, make(s), *c);
            });
        }
}

} // namespace

void bench::add_calls()
{
    add_side<through_library>("library",
                              [](const scene &s) { return through_library(with_log(), s); });
    add_side<through_library>("nolog",
                              [](const scene &s) { return through_library(without_log(), s); });
    add_side<bare>("floor", [](const scene &s) { return bare(s); });
}
