// What was read of a host as a JSON document; schema/varnok-1.json describes it.
#pragma once

#include "varnokctl/fields.h"

namespace ctl
{

// The beginning of every document, without the failures: see finish.
json new_document(const char *command);

json listing_document(const inventory &host, const record_kind &kind);
json tree_document(const inventory &host);
json version_document(const char *tool_version);
json usage_document(std::string_view what_is_wrong);

// What was typed, as the fields of records are shown.
std::string safe_text(std::string_view text);

// Notes the failures, and that the document is complete when there are none.
void finish(json &document, const std::vector<failed_call> &failures);

// For standard output; in ASCII characters alone when asked for.
std::string document_text(const json &document, bool ascii);

} // namespace ctl
