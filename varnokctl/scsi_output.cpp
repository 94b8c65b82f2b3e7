#include "varnokctl/scsi_output.h"

#include "varnokctl/scsi_decode.h"
#include "varnokctl/scsi_names.h"
#include "varnokctl/sense.h"
#include "varnokctl/text.h"

#include <algorithm>
#include <fmt/format.h>
#include <sstream>

namespace ctl
{
namespace
{

constexpr const char *directions[] = {"none", "in", "out"};

std::string dump_line(size_t offset, std::span<const uint8_t> bytes)
{
    constexpr size_t hex_width = 47;
    std::string text;
    for (const uint8_t byte : bytes)
        text += byte >= ' ' && byte < 0x7F ? static_cast<char>(byte) : '.';
    return fmt::format("{:06x}  {}  |{}|\n", offset, padded(hex_bytes(bytes, " "), hex_width),
                       text);
}

// An asterisk stands for lines that repeat the one before. The last line is the length.
std::string dump(std::span<const uint8_t> data)
{
    constexpr size_t width = 16;
    std::string text;
    std::span<const uint8_t> before;
    bool repeats = false;
    for (size_t at = 0; at < data.size(); at += width) {
        const auto line = data.subspan(at, std::min(width, data.size() - at));
        const bool same = std::ranges::equal(line, before);
        if (!same)
            text += dump_line(at, line);
        else if (!repeats)
            text += "*\n";
        repeats = same;
        before = line;
    }
    return text + fmt::format("{:06x}\n", data.size());
}

std::string sense_text(const sense_data &sense)
{
    const std::string words = code_text(sense);
    return fmt::format("Sense  {}{}, {:x}/{:02x}/{:02x}{}{}\n       {}\n",
                       sense.deferred ? "deferred: " : "", key_text(sense), sense.key, sense.asc,
                       sense.ascq, words.empty() ? "" : ": ", words, hex_bytes(sense.raw, " "));
}

// A line for each value; those of a list stand below each other.
std::string decoded_text(const std::vector<decoded_field> &fields)
{
    constexpr size_t width = 22;
    std::string text;
    for (const decoded_field &field : fields) {
        std::string title = field.title;
        std::istringstream lines(field.value.text.empty() ? "-" : field.value.text);
        for (std::string line; std::getline(lines, line); title.clear())
            text += padded(title, width) + line + '\n';
    }
    return text;
}

json decoded_object(const std::vector<decoded_field> &fields)
{
    json object;
    for (const decoded_field &field : fields)
        object[field.key] = field.value.data;
    return object;
}

json sense_object(const sense_data &sense)
{
    return {{"format", sense.descriptors ? "descriptor" : "fixed"},
            {"deferred", sense.deferred},
            {"key", coded_value(sense.key, key_text(sense)).data},
            {"asc", sense.asc},
            {"ascq", sense.ascq},
            {"text", or_null(code_text(sense))},
            {"raw", hex_bytes(sense.raw)}};
}

} // namespace

std::string scsi_text(const scsi_request &request, const scsi_result &result)
{
    std::string text = decoded_text(decode_data(request.cdb, result.data));
    text += result.data.empty() ? "" : dump(result.data);
    if (const auto sense = decode_sense(result.sense))
        text += sense_text(*sense);
    else if (text.empty() && result.carried_out)
        text = "done\n";
    return text;
}

std::string scsi_document(const scsi_request &request, const scsi_result &result, bool ascii)
{
    const auto sense = decode_sense(result.sense);
    const bool has_data = result.carried_out && request.direction == VARNOK_SCSI_DATA_IN;
    json document = new_document("scsi");
    document["port"] = request.port;
    document["target"] = request.target;
    document["lun"] = lun_value(request.lun).data;
    document["cdb"] = hex_bytes(request.cdb);
    document["operation"] = operation_name(request.cdb);
    document["direction"] = directions[request.direction];
    document["length"] = request.data.size();
    document["data"] = has_data ? json(hex_bytes(result.data)) : json();
    document["decoded"] = decoded_object(decode_data(request.cdb, result.data));
    document["sense"] = sense ? sense_object(*sense) : json();
    return finished_text(document, result.failures, ascii);
}

} // namespace ctl
