// Shows what became of a SCSI command.
#pragma once

#include <string>

#include "varnokctl/fields.h"
#include "varnokctl/scsi.h"

namespace ctl
{

// Data as a dump, and sense data in words and raw.
std::string scsi_text(const scsi_result &result);

json scsi_document(const scsi_request &request, const scsi_result &result);

} // namespace ctl
