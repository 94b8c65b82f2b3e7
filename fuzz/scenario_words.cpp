// Prints the words of scenarios, for the fuzzing of scenarios: the names in the simulated host's
// tables, and samples of values.
#include "faults.h"
#include "record_fields.h"
#include "requests.h"
#include "scenario.h"

#include <algorithm>
#include <cstdio>
#include <set>
#include <string>

namespace
{

using words = std::set<std::string>;

template <class Rows>
void add_names(words &to, const Rows &rows)
{
    for (const auto &row : rows)
        to.insert('"' + std::string(row.name) + "\":");
}

words keys()
{
    words all = {R"("host":)",    R"("drivers":)",  R"("ports":)",       R"("sessions":)",
                 R"("luns":)",    R"("target":)",   R"("faults":)",      R"("schema":)",
                 R"("devices":)", R"("naa":)",      R"("designators":)", R"("eui64":)",
                 R"("t10":)",     R"("scsi_name":)"};
    add_names(all, hostsim::host_members);
    add_names(all, hostsim::port_members);
    add_names(all, hostsim::session_members);
    add_names(all, hostsim::lun_members);
    add_names(all, hostsim::unit_members);
    add_names(all, hostsim::fault_members);
    add_names(all, hostsim::pci_fields);
    add_names(all, hostsim::port_fields);
    add_names(all, hostsim::session_fields);
    add_names(all, hostsim::target_fields);
    return all;
}

void print(const std::string &word)
{
    std::string escaped;
    for (const char c : word)
        escaped += c == '"' ? "\\\"" : std::string(1, c);
    std::printf("\"%s\"\n", escaped.c_str());
}

} // namespace

int main()
{
    for (const std::string &key : keys())
        print(key);
    for (const std::string_view name : hostsim::driver_names)
        print('"' + std::string(name) + '"');
    for (const std::string_view name : hostsim::request_names)
        print('"' + std::string(name) + '"');
    for (const char *sample : {R"("varnok/1")", "{}", "[]", "[{}]", R"({"driver":"pelt"})",
                               "00:00:00:00:00:00", "1.2.3.4", "fd00::1", "0xC101000000000000",
                               R"("thin")", "500 GiB", "65536", "16383", "true"})
        print(sample);
    return std::fflush(stdout) == 0 ? 0 : 1;
}
