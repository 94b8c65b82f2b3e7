// The tool's JSON documents; schema/varnok-1.json describes them. A document is the same in every
// locale. With ascii, other characters are escaped.
#pragma once

#include "varnokctl/fields.h"
#include "varnokctl/selection.h"

#include <string>

namespace ctl
{

std::string listing_document(const inventory &host, const record_kind &kind, bool ascii,
                             const selection &chosen = {});
std::string tree_document(const inventory &host, bool ascii);
std::string version_document(const char *tool_version, bool ascii);

// The text is safe already.
std::string usage_document(const std::string &what_is_wrong, bool ascii);

} // namespace ctl
