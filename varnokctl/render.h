// The tool's output: what was read of a host, as text.
#pragma once

#include <string>

#include "varnokctl/fields.h"

namespace ctl
{

// The whole host as a tree.
std::string tree_text(const inventory &host, const output_style &style);

// The same in Graphviz's language, from which dot makes a picture.
std::string dot_text(const inventory &host, const output_style &style);

// The records of a kind as a table, or with all their fields.
std::string listing_text(const inventory &host, const record_kind &kind, const output_style &style);

} // namespace ctl
