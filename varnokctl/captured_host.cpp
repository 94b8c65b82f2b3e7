#include "varnokctl/captured_host.h"

#include "varnokctl/capture_view.h"
#include "varnokctl/captured_record.h"
#include "varnokctl/driver_codes.h"
#include "varnokctl/lun_checks.h"

#include <algorithm>
#include <bit>
#include <map>
#include <set>
#include <utility>

namespace ctl
{
namespace
{

// Says where in the capture it was that something did not fit.
template <class Read>
void within(const char *list, size_t place, const Read &read)
try {
    read();
} catch (const capture_error &error) {
    throw capture_error(fmt::format("{}[{}].{}", list, place, error.what()));
}

// ---- Ports ------------------------------------------------------------------------------------

VARNOK_PHY_PORT_INFO port_info(const captured_record &port)
{
    for (const char *key : {"port_state", "port_speed", "mtu", "session_cnt"})
        port.require(key);
    VARNOK_PHY_PORT_INFO info{};
    info.Version = VARNOK_PHY_PORT_INFO_VERSION;
    port.text("hba_name", info.HbaName);
    port.text("model_name", info.ModelName);
    port.text("model_desc", info.ModelDesc);
    port.text("serial_num", info.SerialNum);
    port.text("driver_name", info.DriverName);
    port.text("driver_version", info.DriverVersion);
    port.text("driver_date", info.DriverDate);
    port.text("fw_version", info.FWVersion);
    if (port.has("mfw_version")) {
        const auto version = port.number<uint32_t>("mfw_version");
        const std::string text =
            fmt::format("{:02}.{:02}.{:02}.{:02}", version >> 24, version >> 16 & 0xFFU,
                        version >> 8 & 0xFFU, version & 0xFFU);
        std::memcpy(info.MFWVersion, text.data(), text.size());
    }
    port.hex("mac", info.MAC, ":");
    info.MTU = port.number<uint32_t>("mtu");
    const auto state = port.number<uint32_t>("port_state");
    info.PortState = reported_code(port_state_codes, state);
    if (info.PortState == 0)
        info.PortState = VARNOK_PORT_STATE_OTHER;
    info.PortSpeed = reported_code(port_speed_codes, port.number<uint32_t>("port_speed"));
    info.SessCount = port.number<uint32_t>("session_cnt");
    info.VendorID = port.number<uint16_t>("vendor_id");
    info.DeviceID = port.number<uint16_t>("device_id");
    info.SubVendorID = port.number<uint16_t>("subvendor_id");
    info.SubSystemID = port.number<uint16_t>("subsystem_id");
    info.PciDomainNum = port.number<uint16_t>("domain_num");
    info.PciBusNum = port.number<uint16_t>("bus_num");
    info.PciDeviceNum = port.number<uint16_t>("device_num");
    info.PciFunctionNum = port.number<uint16_t>("function_num");
    info.PciRevision = port.number<uint16_t>("revision");
    info.PhyPortNum = port.number<uint16_t>("port_num");
    info.PCIESpeed = reported_code(pcie_speed_codes, port.number<uint32_t>("pcie_speed"));
    info.PCIEWidth = reported_code(pcie_width_codes, port.number<uint32_t>("pcie_width"));
    info.ChipRevId = port.number<uint32_t>("chip_rev_id");
    return info;
}

VARNOK_ISCSI_PORTAL portal_of(const captured_record &port)
{
    VARNOK_ISCSI_PORTAL portal{};
    port.address("ipv4addr", portal.IPv4Addr);
    port.address("ipv6addr", portal.IPv6Addr);
    portal.IPv4PortNum = port.number<uint16_t>("ipv4_port");
    portal.IPv6PortNum = port.number<uint16_t>("ipv6_port");
    return portal;
}

// ---- Sessions and targets ---------------------------------------------------------------------

VARNOK_SESS_INFO session_info(const captured_record &session)
{
    VARNOK_SESS_INFO info{};
    if (session.at("logged_in") != false)
        session.require("state");
    info.SessionNum = session.number<uint32_t>("sess_num");
    info.SessionUnique = session.large_number("sess_unique", "");
    info.SessionState = session.number<uint8_t>("state");
    session.text("init_iqn", info.InitiatorName);
    session.address("init_ipv4addr", info.InitIPv4Addr);
    session.address("init_ipv6addr", info.InitIPv6Addr);
    info.InitIPv4PortNum = session.number<uint16_t>("init_ipv4_port");
    info.InitIPv6PortNum = session.number<uint16_t>("init_ipv6_port");
    session.text("tgt_iqn", info.TargetName);
    session.address("tgt_ipv4addr", info.TgtIPv4Addr);
    session.address("tgt_ipv6addr", info.TgtIPv6Addr);
    info.TgtIPv4PortNum = session.number<uint16_t>("tgt_ipv4_port");
    info.TgtIPv6PortNum = session.number<uint16_t>("tgt_ipv6_port");
    info.InitialR2T = session.number<uint8_t>("initial_r2t");
    info.ImmediateData = session.number<uint8_t>("imm_data");
    info.DataSequenceInOrder = session.number<uint8_t>("dataseq_inorder");
    info.DataPDUInOrder = session.number<uint8_t>("pdu_inorder");
    info.MaxOutstandingR2T = session.number<uint32_t>("max_r2t");
    info.FirstBurstLength = session.number<uint32_t>("first_burst_len");
    info.ErrorRecoveryLevel = session.number<uint32_t>("erl");
    info.ConnID = session.number<uint64_t>("cid");
    return info;
}

VARNOK_TGT_INFO target_info(const captured_record &target, size_t number)
{
    VARNOK_TGT_INFO info{};
    info.ScsiTgtNum = static_cast<uint32_t>(number);
    target.text("iqn", info.TargetName);
    target.hex("mac", info.MAC, ":");
    target.hex("isid", info.Isid);
    target.address("ipv4addr", info.IPv4Addr);
    target.address("ipv6addr", info.IPv6Addr);
    info.IPv4Port = target.number<uint16_t>("ipv4_port");
    info.IPv6Port = target.number<uint16_t>("ipv6_port");
    return info;
}

// ---- LUNs -------------------------------------------------------------------------------------

lun_levels levels_in(const captured_record &lun)
{
    lun.require("lun");
    const auto levels = parse_lun(captured_text(lun.at("lun")));
    if (!levels)
        captured_record::fail("lun", "no LUN");
    return *levels;
}

// A capture leaves out the usual block size, also where the device does not tell one.
std::optional<block_sizes> blocks_of(const captured_record &unit, const lun_identity &identity)
{
    constexpr uint32_t usual = 512, unknown = 1;
    const bool tells = !identity.serial.empty() || !identity.designators.empty();
    const auto logical = unit.has("block_size") ? unit.number<uint32_t>("block_size") : usual;
    if (logical <= unknown || (!tells && !unit.has("block_size")))
        return {};
    const uint64_t physical =
        std::max(unit.number<uint64_t>("physical_block_size"), uint64_t{logical});
    return block_sizes{logical, static_cast<unsigned>(std::bit_width(physical / logical) - 1)};
}

std::optional<uint8_t> provisioning_in(const captured_record &unit)
{
    lun_identity known;
    for (known.provisioning = 0; !provisioning_text(known).empty(); ++*known.provisioning)
        if (captured_text(unit.at("provisioning")) == provisioning_text(known))
            return known.provisioning;
    return {};
}

lun_entry unit_of(const capture_json &object)
{
    const captured_record unit(object);
    unit.require("size");
    lun_entry lun = {.info = {}};
    lun.info.Capacity = unit.large_number("size", " B");
    lun.info.DeviceType = unit.number<uint8_t>("device_type");
    unit.text("vendor", lun.info.VendorName, 8);
    unit.text("product", lun.info.ProductName, 16);
    unit.text("revision", lun.info.ProductRevision, 4);
    lun_identity &identity = lun.identity.emplace();
    const std::string serial = captured_text(unit.at("serial"));
    if (serial.size() > longest_serial)
        captured_record::fail("serial", "too long");
    identity.serial.assign(serial.begin(), serial.end());
    identity.designators = captured_designators(object);
    identity.blocks = blocks_of(unit, identity);
    identity.provisioning = provisioning_in(unit);
    keep_the_best(identity);
    return lun;
}

// ---- The host ---------------------------------------------------------------------------------

class host_reader
{
  public:
    explicit host_reader(const capture_json &document) : document_(document) {}

    inventory read()
    {
        for (const auto &[name, unit] : member_or_null(document_, "devices").items())
            devices_.emplace(name, unit_of(unit));
        const std::vector<uint32_t> numbers = port_numbers(document_);
        const capture_json &ports = document_["ports"];
        for (size_t at = 0; at < ports.size(); ++at)
            within("ports", at, [&] { read_port(ports[at], numbers[at]); });
        const capture_json &failures = document_["failures"];
        for (size_t at = 0; at < failures.size(); ++at)
            within("failures", at, [&] { read_failure(failures[at]); });
        for (port_entry &port : host_.ports)
            note_silence(port);
        return std::move(host_);
    }

  private:
    void read_port(const capture_json &object, uint32_t number)
    {
        port_entry &port = host_.ports.emplace_back(port_entry{.instance = number});
        const captured_record record(object);
        if (record.has("mac"))
            port.info = port_info(record);
        if (port.info && record.has("ipv4addr"))
            port.portal = portal_of(record);
        const capture_json &sessions = object["sessions"];
        for (size_t at = 0; at < sessions.size(); ++at)
            within("sessions", at, [&] { read_session(port, sessions[at], at); });
    }

    void read_session(port_entry &port, const capture_json &object, size_t number)
    {
        const captured_record session(object);
        if (session.has("sess_num") || session.has("state"))
            port.sessions.push_back({static_cast<uint32_t>(number), session_info(session)});
        const capture_json &luns = object["luns"];
        if (!session.has("target")) {
            if (!luns.empty())
                captured_record::fail("luns", "of no target");
            return;
        }
        target_entry &target = port.targets.emplace_back(
            target_entry{target_info(captured_record(object["target"]), number)});
        for (size_t at = 0; at < luns.size(); ++at)
            within("luns", at, [&] { read_lun(target, luns[at]); });
        target.info.LunCount += static_cast<uint32_t>(target.luns.size());
    }

    void read_lun(target_entry &target, const capture_json &object)
    {
        const captured_record lun(object);
        if (lun.has("repeat")) { // counted, but not listed
            target.info.LunCount = std::max(lun.number<uint16_t>("repeat"), uint16_t{1});
            return;
        }
        const lun_levels levels = levels_in(lun);
        target.luns.push_back(lun.has("device") ? devices_.at(captured_text(lun.at("device")))
                                                : unit_of(object));
        target.luns.back().info.ScsiLunNum = levels.levels_1_and_2;
        target.luns.back().info.ScsiLunNumExt = levels.levels_3_and_4;
    }

    void read_failure(const capture_json &object)
    {
        const captured_record record(object);
        const auto number = [&](const char *key) {
            const capture_json &value = record.at(key);
            return value.is_number_unsigned() ? std::optional(record.number<uint32_t>(key))
                                              : std::nullopt;
        };
        const capture_json &raw = member_or_null(record.at("lun"), "raw");
        const auto failure =
            retold({.call = captured_text(record.at("call")),
                    .name = captured_text(record.at("name")),
                    .meaning = captured_text(record.at("meaning")),
                    .port = number("port"),
                    .target = number("target"),
                    .lun = raw.is_string() ? parse_lun(captured_text(raw)) : std::nullopt,
                    .status = number("status").value_or(VARNOK_STATUS_SUCCESS)});
        if (!failure)
            captured_record::fail("call", "no call of the library");
        if (failure->port)
            told_.insert(*failure->port);
        mark(*failure);
        host_.failures.push_back(*failure);
    }

    // As the failure of a live host leaves its mark.
    void mark(const failed_call &failure)
    {
        if (!failure.port)
            return;
        const auto port =
            std::ranges::lower_bound(host_.ports, *failure.port, {}, &port_entry::instance);
        if (port == host_.ports.end() || port->instance != failure.port)
            return;
        port->sessions_unread |=
            failure.call == call_name::get_session_info && port->sessions.empty();
        port->targets_unread |= failure.call == call_name::get_tgt_info && port->targets.empty();
        const auto target = std::ranges::find(port->targets, failure.target, [](const auto &entry) {
            return std::optional<uint32_t>(entry.info.ScsiTgtNum);
        });
        if (target == port->targets.end())
            return;
        if (!failure.lun && failure.cause != failure_cause::list_incomplete)
            target->is_counted &= target->info.LunCount > target->luns.size();
        if (!failure.detail.starts_with(says_not_what_it_is))
            return;
        for (lun_entry &lun : target->luns)
            lun.is_known &= levels_of(lun.info) != failure.lun;
    }

    // A port is not there without a word: then the capture was cut or made up.
    void note_silence(port_entry &port)
    {
        if (!port.info && !told_.contains(port.instance))
            host_.failures.push_back({.call = call_name::read_file,
                                      .cause = failure_cause::no_capture,
                                      .port = port.instance,
                                      .detail = "the capture says nothing of this port"});
    }

    const capture_json &document_;
    inventory host_;
    std::map<std::string, lun_entry> devices_; // by their names
    std::set<uint32_t> told_;                  // ports that a failure is about
};

} // namespace

inventory host_of(const capture_json &document) { return host_reader(document).read(); }

} // namespace ctl
