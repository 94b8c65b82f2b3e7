// Drivers that lie, and callers that ask anything of them. The bytes say which drivers there are,
// then what the caller does and, at each request of the library, how the true answer is spoilt.
#include "drivers.h"
#include "hostsim.h"
#include "platform.h"
#include "records/varnok_driver_records.h"
#include "support/varnok_dbg.h"
#include "support/varnok_sem.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>

using hostsim::exchange;
using hostsim::request;

namespace
{

// A LUN of each kind: two that READ CAPACITY(10) can say, one that it cannot, and one without a
// medium.
constexpr char sessions[] =
    R"([{"luns":[{"size":1048576},{"lun":300,"size":"5 TiB"}]},{"luns":[{"device_type":5}]}])";

std::string scenario_of(uint8_t drivers)
{
    std::string ports;
    for (size_t i = 0; i < hostsim::driver_names.size(); ++i) {
        if ((drivers >> i & 1) == 0)
            continue;
        const std::string port = R"({"driver":")" + std::string(hostsim::driver_names[i]) + '"';
        ports.append(ports.empty() ? "" : ",").append(port).append("},");
        ports.append(port).append(R"(,"sessions":)").append(sessions).append("}");
    }
    return R"({"ports":[)" + ports + "]}";
}

template <class Number>
Number field(std::span<std::byte> record, size_t offset)
{
    Number value = 0;
    memcpy(&value, record.data() + offset, sizeof value);
    return value;
}

template <class Number>
void set_field(std::span<std::byte> record, size_t offset, Number value)
{
    memcpy(record.data() + offset, &value, sizeof value);
}

// ---- The drivers ------------------------------------------------------------------------------

// Counts stay small enough for a short run: discovery asks for as many ports as a driver claims.
constexpr int32_t most_ports = 24;
constexpr uint16_t first_claimed = 32;

class liar
{
  public:
    explicit liar(bytes &input) : input_(input) {}

    // Only now are the lengths those of the library's own buffers.
    void note(const exchange &e)
    {
        if (e.what != request::scsi_cmd)
            return;
        const auto sense = e.record.subspan(offsetof(varnok_drv_scsi_cmd_ioctl, sense), 256);
        REQUIRE(std::ranges::all_of(sense, [](std::byte b) { return b == std::byte{}; }));
        data_ = {};
        const auto size = field<uint32_t>(e.record, offsetof(varnok_drv_scsi_cmd_ioctl, data_len));
        if (hostsim::is_native(e.driver)) {
            REQUIRE(size <= VARNOK_DRV_SCSI_DATA_MAX);
            data_ = e.record.subspan(head_size);
        } else {
            const auto address =
                field<uint64_t>(e.record, offsetof(varnok_drv_scsi_cmd_ioctl, data_addr));
            if (address != 0)
                data_ = {reinterpret_cast<std::byte *>(static_cast<uintptr_t>(address)), size};
        }
    }

    void spoil(exchange &e)
    {
        for (uint8_t how = input_.byte(); (how & 0x80) != 0; how = input_.byte())
            spoil_once(e, how);
        if (e.what == request::hba_cnt && field<int32_t>(e.record, 0) > most_ports)
            set_field(e.record, 0, field<int32_t>(e.record, 0) % most_ports);
        // Ports that are claimed beyond the true ones answer, or the library would look for them
        // for long.
        if (e.what == request::hostno && !hostsim::is_native(e.driver) &&
            field<uint16_t>(e.header, offsetof(varnok_drv_ioctl, hbaselect)) >= first_claimed)
            e.status = 0, e.transport_errno = 0;
    }

  private:
    static constexpr size_t head_size = offsetof(varnok_drv_scsi_cmd_ioctl, data_addr);

    void spoil_once(exchange &e, uint8_t how)
    {
        std::span<std::byte> where = e.record;
        if (e.what == request::scsi_cmd)
            where = (how & 0x40) != 0 ? data_ : e.record.first(head_size);
        switch (how & 7) {
        case 0:
            e.status = input_.byte();
            break;
        case 1:
            e.status = input_.number<uint32_t>();
            break;
        case 2:
            e.transport_errno = 1 + input_.byte() % 133;
            break;
        case 3: { // every text fills its array
            const auto value = static_cast<std::byte>(input_.byte());
            std::fill(where.begin(), where.end(), value);
            break;
        }
        default: {
            if (where.empty())
                break;
            const size_t at = input_.number<uint16_t>() % where.size();
            const size_t size = (how >> 3 & 7) + 1;
            input_.copy_to(where.data() + at, std::min(size, where.size() - at));
        }
        }
    }

    bytes &input_;
    std::span<std::byte> data_; // of the SCSI command under way
};

// ---- The caller -------------------------------------------------------------------------------

// As long as asked and not a byte longer, wherever an overrun would go.
template <class Byte = uint8_t>
std::unique_ptr<Byte[]> exact(size_t size)
{
    auto block = std::make_unique<Byte[]>(size);
    memset(block.get(), 0xA5, size);
    return block;
}

class caller
{
  public:
    caller(bytes &input, bool long_lists) : input_(input), long_lists_(long_lists) {}

    void call()
    {
        using step = void (caller::*)();
        constexpr step steps[] = {
            &caller::load,     &caller::free,    &caller::count,   &caller::open,
            &caller::close,    &caller::port,    &caller::portal,  &caller::sessions,
            &caller::sessions, &caller::targets, &caller::targets, &caller::luns,
            &caller::luns,     &caller::scsi,    &caller::dump,    &caller::version};
        (this->*steps[input_.byte() % std::size(steps)])();
    }

  private:
    // Handles and instances are small, but for one in sixteen.
    uint32_t some_number()
    {
        const uint8_t byte = input_.byte();
        return byte < 0xF0 ? byte % 16 : input_.number<uint32_t>();
    }

    // True, near the truth, or anything.
    uint8_t room() { return input_.byte() % 18; }

    void load() { VARNOK_LoadLibrary(); }
    void free() { platform::free_library(); }
    void dump()
    {
        const uint8_t size = input_.byte();
        const auto words = exact(size);
        const uint32_t word_size = 8U << (size & 3);
        varnok_dbg_dump("words", words.get(), word_size, size / (word_size / 8));
    }
    void version()
    {
        const uint8_t size = input_.byte();
        const auto text = exact(size);
        VARNOK_GetVersion((size & 1) != 0 ? text.get() : nullptr, size);
    }
    void count()
    {
        uint32_t ports = 0;
        VARNOK_GetPortCount((input_.byte() & 1) != 0 ? nullptr : &ports);
    }
    void open()
    {
        uint32_t handle = 0;
        const uint32_t instance = some_number();
        VARNOK_OpenAdapter(instance, instance == 0xF ? nullptr : &handle);
    }
    void close() { VARNOK_CloseAdapter(some_number()); }

    void port()
    {
        const uint32_t handle = some_number();
        VARNOK_PHY_PORT_INFO info = {};
        info.Version = input_.byte();
        VARNOK_GetPhyPortInfo(handle, info.Version == 0xFF ? nullptr : &info);
    }

    template <class Record>
    void list(uint32_t (*query)(uint32_t, uint32_t *, Record **))
    {
        const uint32_t handle = some_number();
        const uint8_t given = room();
        const auto block = exact(given * sizeof(Record));
        auto *array = given == 17 ? nullptr : reinterpret_cast<Record *>(block.get());
        uint32_t count = given;
        const uint32_t status = query(handle, &count, &array);
        if (status == VARNOK_STATUS_SUCCESS)
            REQUIRE(count == given || count == 0);
    }
    void portal() { list(VARNOK_GetIscsiPortal); }
    void sessions() { list(VARNOK_GetSessionInfo); }
    void targets() { list(VARNOK_GetTgtInfo); }

    void luns()
    {
        constexpr uint32_t most = 2047; // are ever listed
        const uint32_t handle = some_number();
        const uint32_t target = some_number();
        const uint8_t given = input_.byte();
        uint32_t count = given == 0xFF && long_lists_ ? UINT32_MAX : given % 18;
        const uint32_t version = (given >> 6 & 1) + 1;
        const size_t entry =
            version == VARNOK_RECORD_VERSION_2 ? sizeof(VARNOK_LUN_INFO) : VARNOK_LUN_INFO_SIZE_1;
        const auto block = exact(std::min(count, most) * entry);
        auto *array = reinterpret_cast<VARNOK_LUN_INFO *>(block.get());
        if (count != 0)
            memcpy(array, &version, sizeof version);
        if (given == 0xFE)
            array = nullptr;
        VARNOK_GetLunInfo(handle, target, &count, &array);
    }

    void scsi()
    {
        const uint32_t handle = some_number();
        VARNOK_SCSI_CMND command = {};
        command.ScsiTgtNum = input_.byte();
        command.ScsiLunNum = input_.number<uint16_t>();
        command.Direction = input_.byte();
        command.CDBLength = input_.byte();
        command.SenseLength = input_.number<uint16_t>();
        input_.copy_to(command.CDB, sizeof command.CDB);
        constexpr uint32_t lengths[] = {0, 8, 36, 255, 512, 16384, 262144, 262145, 300000};
        uint32_t length = lengths[input_.byte() % std::size(lengths)];
        const auto data = exact(length);
        const bool none = command.Direction == VARNOK_SCSI_NO_DATA;
        const VARNOK_SCSI_CMND sent = command;
        VARNOK_SendScsiCommand(handle, &command, none ? nullptr : &length,
                               none ? nullptr : data.get());
        REQUIRE(memcmp(&command, &sent, offsetof(VARNOK_SCSI_CMND, Sense)) == 0);
        const size_t accepted = std::min<size_t>(sent.SenseLength, sizeof sent.Sense);
        REQUIRE(memcmp(command.Sense + accepted, sent.Sense + accepted,
                       sizeof sent.Sense - accepted) == 0);
    }

    bytes &input_;
    bool long_lists_;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    constexpr uint32_t masks[] = {0, 0, VARNOK_DBG_ERROR | VARNOK_DBG_FILE,
                                  VARNOK_DBG_ERROR | VARNOK_DBG_TRACE};
    constexpr int most_calls = 40;
    bytes input(data, size);
    const uint8_t first = input.byte();
    const auto host = hostsim::host::from_text(scenario_of(first & 0xF));
    liar drivers(input);
    host->on_request = [&](const exchange &e) { drivers.note(e); };
    host->on_answer = [&](exchange &e) { drivers.spoil(e); };
    hostsim::install(host.get());

    varnok_debug = masks[first >> 4 & 3];
    varnok_dbg_sem_id = varnok_sem_get(varnok_dbg_semkey);
    strcpy(varnoklog_path, "/dev/null");
    constexpr uint8_t native_ones = 0b0101; // move much for every LUN
    caller user(input, (first & native_ones) == 0);
    VARNOK_LoadLibrary();
    for (int calls = 0; calls < most_calls && !input.empty(); ++calls)
        user.call();
    platform::free_library();
    hostsim::install(nullptr);
    return 0;
}
