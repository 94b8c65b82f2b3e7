// The command "scsi": what it takes and what it does.
#pragma once

#include "varnokctl/choice.h"
#include "varnokctl/scsi.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace ctl
{

constexpr uint32_t most_scsi_data = 16U << 20;

extern const char *const scsi_help;

struct scsi_options {
    scsi_request request; // but for the port and the target, which are looked for
    port_choice port;
    target_choice target;
    std::string lun;
    std::vector<std::string> words; // the bytes of a CDB, or a shorthand for one
    std::optional<uint32_t> data_in;
    std::string out_file;
    std::string save_file;
    bool yes = false;
    // The data's length is known by the command. Then only what the device sent is kept.
    bool knows_data = false;
    uint64_t blocks = 0; // that a command reads whose data's length depends on the block size
};

class usage_error : public std::runtime_error
{
    using std::runtime_error::runtime_error;
};

// Makes the request out of the other options. Throws a usage_error.
void complete(scsi_options &options);

// Sends the request and saves its data in the file asked for. The request becomes the one that was
// sent: blocks and pages tell their size only then.
scsi_result run_scsi(scsi_options &options);

} // namespace ctl
