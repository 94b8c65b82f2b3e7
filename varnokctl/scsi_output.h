// Shows what came of a SCSI command.
#pragma once

#include "varnokctl/scsi.h"

#include <string>

namespace ctl
{

// Data in words where they are known, and as a dump; sense data in words and bytes.
std::string scsi_text(const scsi_request &request, const scsi_result &result);

std::string scsi_document(const scsi_request &request, const scsi_result &result, bool ascii);

} // namespace ctl
