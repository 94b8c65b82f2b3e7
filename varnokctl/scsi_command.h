// The command "scsi": its command line and its run.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "varnokctl/scsi.h"

namespace ctl
{

struct scsi_options {
    scsi_request request;
    std::string lun;
    std::vector<std::string> words; // a CDB or a shorthand
    std::optional<uint32_t> data_in;
    std::string out_file;
    std::string save_file;
    bool yes = false;
    size_t (*data_length)(const std::vector<uint8_t> &) = nullptr; // what a shorthand's data say
};

// The options live as long as the application. Wrong usage is found while it parses.
CLI::App *add_scsi(CLI::App &app, scsi_options &options);

// Sends the command and keeps its data in the file asked for.
scsi_result run_scsi(const scsi_options &options);

} // namespace ctl
