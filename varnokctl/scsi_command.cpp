#include "varnokctl/scsi_command.h"

#include "varnokctl/text.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <span>

namespace ctl
{
namespace
{

size_t inquiry_length(const std::vector<uint8_t> &data) { return 5U + data[4]; }

size_t report_luns_length(const std::vector<uint8_t> &data)
{
    return 8 + big_endian(std::span(data).first(4));
}

size_t whole_length(const std::vector<uint8_t> &data) { return data.size(); }

struct shorthand {
    const char *name;
    std::vector<uint8_t> cdb;
    uint32_t data_in;
    size_t (*data_length)(const std::vector<uint8_t> &);
};

const std::vector<shorthand> &shorthands()
{
    static const std::vector<shorthand> all = {
        {"tur", {0, 0, 0, 0, 0, 0}, 0, whole_length},
        {"inquiry", {0x12, 0, 0, 0, 0xFF, 0}, 0xFF, inquiry_length},
        {"readcap", {0x9E, 0x10, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 32, 0, 0}, 32, whole_length},
        {"reportluns", {0xA0, 0, 0, 0, 0, 0, 0, 0, 0x40, 0, 0, 0}, 0x4000, report_luns_length},
    };
    return all;
}

// Operation codes that change a medium, even where no data goes out: FORMAT UNIT, SANITIZE, UNMAP,
// EXTENDED COPY, BLANK, RESET WRITE POINTER, ATA PASS-THROUGH, and all that write, erase or mark.
constexpr uint8_t changing[] = {
    0x04, 0x0A, 0x0B, 0x10, 0x19, 0x2A, 0x2C, 0x2E, 0x3B, 0x3F, 0x41, 0x42, 0x48, 0x5B, 0x80, 0x83,
    0x85, 0x89, 0x8A, 0x8B, 0x8D, 0x8E, 0x93, 0x94, 0x9A, 0x9C, 0x9F, 0xA1, 0xAA, 0xAC, 0xAE,
};

[[noreturn]] void wrong(const std::string &what) { throw usage_error(what); }

uint8_t cdb_byte(const std::string &word)
{
    uint8_t byte = 0;
    const char *end = word.data() + word.size();
    const auto parsed = std::from_chars(word.data(), end, byte, 16);
    if (parsed.ec != std::errc() || parsed.ptr != end || word.size() > 2)
        wrong("the CDB has a byte '" + word + "'; give bytes as two hexadecimal digits each");
    return byte;
}

void take_command(scsi_options &options)
{
    constexpr size_t longest_cdb = 16;
    const auto known = std::ranges::find(shorthands(), options.words.front(), &shorthand::name);
    if (known != shorthands().end() && options.words.size() == 1) {
        if (options.data_in || !options.out_file.empty())
            wrong("'" + options.words.front() + "' knows its data; leave --in and --out out");
        options.request.cdb = known->cdb;
        if (known->data_in != 0)
            options.data_in = known->data_in;
        options.data_length = known->data_length;
        return;
    }
    if (options.words.size() > longest_cdb)
        wrong("the CDB has more than 16 bytes");
    std::ranges::transform(options.words, std::back_inserter(options.request.cdb), cdb_byte);
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

} // namespace

const char *const scsi_help =
    "The CDB is 1 to 16 bytes in hexadecimal, after \"--\"; or one of these words:\n"
    "  tur         TEST UNIT READY\n"
    "  inquiry     INQUIRY, standard data\n"
    "  readcap     READ CAPACITY(16)\n"
    "  reportluns  REPORT LUNS\n"
    "The words know the length of their data. Any other command moves data only with --in or "
    "--out,\n"
    "and --in shows its whole length, with zeros after what the device sent.\n\n"
    "  varnokctl scsi --port 0 --target 0 --lun 0 --in 255 -- 12 00 00 00 ff 00";

void complete(scsi_options &options)
{
    const auto lun = parse_lun(options.lun);
    if (!lun)
        wrong("--lun takes 0 to 16383, or 0x and the LUN's 16 hexadecimal digits");
    options.request.lun = *lun;
    take_command(options);
    take_data(options);
}

scsi_result run_scsi(const scsi_options &options)
{
    scsi_result result = send(options.request);
    if (!result.data.empty() && options.data_length != nullptr)
        result.data.resize(std::min(result.data.size(), options.data_length(result.data)));
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
