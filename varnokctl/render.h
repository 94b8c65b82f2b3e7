// Shows what was read of a host as text.
#pragma once

#include "varnokctl/fields.h"
#include "varnokctl/selection.h"

#include <string>

namespace ctl
{

// The whole host as a tree.
std::string tree_text(const inventory &host, const output_style &style);

// The same in the language of Graphviz, whose dot draws it.
std::string dot_text(const inventory &host, const output_style &style);

// The records of a kind: as a table or, with all their fields, as a block each. A port that could
// not be read has a row that says so.
std::string listing_text(const inventory &host, const record_kind &kind, const output_style &style,
                         const selection &chosen = {});

} // namespace ctl
