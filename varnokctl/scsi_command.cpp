#include "varnokctl/scsi_command.h"

#include "varnokctl/scsi_decode.h"
#include "varnokctl/text.h"
#include "varnokctl/transfer_length.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <span>
#include <string_view>

namespace ctl
{
namespace
{

struct shorthand {
    const char *name;
    std::vector<uint8_t> cdb;
};

const std::vector<shorthand> &shorthands()
{
    static const std::vector<shorthand> all = {
        {"tur", {0, 0, 0, 0, 0, 0}},
        {"inquiry", {0x12, 0, 0, 0, 0xFF, 0}},
        {"vpd", {0x12, 1, 0, 0, 0xFC, 0}},
        {"readcap", {0x9E, 0x10, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 32, 0, 0}},
        {"readcap10", {0x25, 0, 0, 0, 0, 0, 0, 0, 0, 0}},
        {"reportluns", {0xA0, 0, 0, 0, 0, 0, 0, 0, 0x40, 0, 0, 0}},
    };
    return all;
}

constexpr uint32_t usual_block = 512;

// Operation codes that change a medium, even where no data goes out: FORMAT UNIT, SANITIZE, UNMAP,
// EXTENDED COPY, BLANK, RESET WRITE POINTER, ATA PASS-THROUGH, and all that write, erase or mark.
constexpr uint8_t changing[] = {
    0x04, 0x0A, 0x0B, 0x10, 0x19, 0x2A, 0x2C, 0x2E, 0x3B, 0x3F, 0x41, 0x42, 0x48, 0x5B, 0x80, 0x83,
    0x85, 0x89, 0x8A, 0x8B, 0x8D, 0x8E, 0x93, 0x94, 0x9A, 0x9C, 0x9F, 0xA1, 0xAA, 0xAC, 0xAE,
};

[[noreturn]] void wrong(const std::string &what) { throw usage_error(what); }

// "12", "0x12" or "1200": two hexadecimal digits a byte, or a single one.
std::vector<uint8_t> bytes_of(const std::string &word)
{
    std::string_view digits = word;
    if (digits.starts_with("0x") || digits.starts_with("0X"))
        digits.remove_prefix(2);
    std::vector<uint8_t> bytes;
    while (!digits.empty() && (digits.size() == 1 ? bytes.empty() : true)) {
        const std::string_view pair = digits.substr(0, 2);
        uint8_t byte = 0;
        const auto parsed = std::from_chars(pair.data(), pair.data() + pair.size(), byte, 16);
        if (parsed.ec != std::errc() || parsed.ptr != pair.data() + pair.size())
            break;
        bytes.push_back(byte);
        digits.remove_prefix(pair.size());
    }
    if (bytes.empty() || !digits.empty())
        wrong("'" + word + "' is no part of a CDB; give bytes as two hexadecimal digits each");
    return bytes;
}

void take_command(scsi_options &options)
{
    constexpr size_t longest_cdb = 16;
    std::vector<uint8_t> &cdb = options.request.cdb;
    const std::string &first = options.words.front();
    const auto known = std::ranges::find(shorthands(), first, &shorthand::name);
    if (known == shorthands().end()) {
        for (const std::string &word : options.words)
            std::ranges::copy(bytes_of(word), std::back_inserter(cdb));
        if (cdb.size() > longest_cdb)
            wrong("the CDB has more than 16 bytes");
        return;
    }
    if (options.data_in || !options.out_file.empty())
        wrong("'" + first + "' knows its data; leave --in and --out out");
    cdb = known->cdb;
    if (options.words.size() == 1)
        return;
    const std::vector<uint8_t> page = first == "vpd" && options.words.size() == 2
                                          ? bytes_of(options.words[1])
                                          : std::vector<uint8_t>();
    if (page.size() != 1)
        wrong("only 'vpd' takes another word: the number of one page, in hexadecimal");
    cdb[2] = page.front();
}

// A command that is known to return data gets a buffer.
void find_data(scsi_options &options)
{
    const auto length = data_in_of(options.request.cdb);
    if (options.data_in || !options.out_file.empty() || !length || length->count == 0)
        return;
    const uint64_t size = length->count * (length->in_blocks ? usual_block : 1);
    if (length->in_blocks && size > most_scsi_data)
        wrong("the command reads more than 16 MiB; read less at once");
    options.data_in = static_cast<uint32_t>(std::min<uint64_t>(size, most_scsi_data));
    options.blocks = length->in_blocks ? length->count : 0;
    options.knows_data = !length->in_blocks;
}

void take_data(scsi_options &options)
{
    scsi_request &request = options.request;
    if (!options.save_file.empty() && !options.data_in)
        wrong("--save needs data from the device: give --in");
    if (options.data_in) {
        request.direction = VARNOK_SCSI_DATA_IN;
        request.data.resize(*options.data_in);
    }
    const bool writes = !options.out_file.empty() ||
                        std::ranges::find(changing, request.cdb[0]) != std::end(changing);
    if (writes && !options.yes)
        wrong("the command writes to the device; confirm it with --yes");
    if (options.out_file.empty())
        return;
    request.direction = VARNOK_SCSI_DATA_OUT;
    std::ifstream file(options.out_file, std::ios::binary);
    char byte = 0;
    while (request.data.size() <= most_scsi_data && file.get(byte))
        request.data.push_back(static_cast<uint8_t>(byte));
    if (request.data.empty() || request.data.size() > most_scsi_data || file.bad())
        wrong("--out needs a readable file of 1 byte to 16 MiB");
}

// Returns 0, or the system's error number.
int save(const std::string &path, const std::vector<uint8_t> &data)
{
    std::FILE *file = std::fopen(path.c_str(), "wb");
    if (file == nullptr)
        return errno;
    const bool written = std::fwrite(data.data(), 1, data.size(), file) == data.size();
    const int why = errno;
    if (std::fclose(file) != 0)
        return errno;
    return written ? 0 : why;
}

// As READ CAPACITY tells it. Without an answer it is the usual one.
uint32_t block_size(const scsi_request &reading)
{
    scsi_request request = reading;
    request.cdb = {0x25, 0, 0, 0, 0, 0, 0, 0, 0, 0};
    request.data.assign(8, 0);
    const scsi_result result = send(request);
    const auto size =
        result.data.empty() ? 0 : static_cast<uint32_t>(big_endian(std::span(result.data).last(4)));
    return size == 0 ? usual_block : size;
}

// Whether a page is longer than the room that every device takes.
bool is_longer_page(const scsi_request &request, const std::vector<uint8_t> &data)
{
    const size_t length = data.empty() ? 0 : told_length(request.cdb, data);
    return length > data.size() && length <= UINT16_MAX && data[1] == request.cdb[2];
}

} // namespace

const char *const scsi_help =
    "The CDB is 1 to 16 bytes in hexadecimal (12 00, 1200 or 0x12); or one of these words:\n"
    "  tur         TEST UNIT READY\n"
    "  inquiry     INQUIRY, standard data\n"
    "  vpd [PAGE]  INQUIRY, a page of vital product data: 00, 80, 83, b0, b2, ...\n"
    "  readcap     READ CAPACITY(16)\n"
    "  readcap10   READ CAPACITY(10)\n"
    "  reportluns  REPORT LUNS\n"
    "Commands that are known to return data know its length. Any other moves data only with --in "
    "or\n"
    "--out. --in shows its whole length, with zeros after what the device sent.\n\n"
    "  varnokctl scsi --port 0 --target 0 --lun 0 vpd 83\n"
    "  varnokctl scsi --port 0 --target 0 --lun 0 120000002400";

void complete(scsi_options &options)
{
    const auto lun = parse_lun(options.lun);
    if (!lun)
        wrong("--lun takes a number from 0 to 16383, or any other form in which a LUN is shown");
    options.request.lun = *lun;
    take_command(options);
    find_data(options);
    take_data(options);
}

scsi_result run_scsi(scsi_options &options)
{
    scsi_request &request = options.request;
    scsi_result result;
    if (options.blocks != 0) {
        const uint64_t size = options.blocks * block_size(request);
        if (size > most_scsi_data) {
            result.failures.push_back({.call = call_name::command_line,
                                       .cause = failure_cause::wrong_usage,
                                       .detail = "the command reads more than 16 MiB"});
            return result;
        }
        request.data.resize(size);
    }
    result = send(request);
    if (options.words.front() == "vpd" && is_longer_page(request, result.data)) {
        const size_t length = told_length(request.cdb, result.data);
        request.cdb[3] = static_cast<uint8_t>(length >> 8);
        request.cdb[4] = static_cast<uint8_t>(length);
        request.data.resize(length);
        result = send(request);
    }
    if (!result.data.empty() && options.knows_data)
        result.data.resize(std::min(result.data.size(), told_length(request.cdb, result.data)));
    if (!result.carried_out || options.save_file.empty())
        return result;
    const auto error = static_cast<uint32_t>(save(options.save_file, result.data));
    if (error != 0)
        result.failures.push_back({call_name::write_file,
                                   failure_cause::file_not_written,
                                   options.request.port,
                                   options.request.target,
                                   error,
                                   {}});
    return result;
}

} // namespace ctl
