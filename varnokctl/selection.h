// Which columns of a list are shown, and in which order its records come.
#pragma once

#include "varnokctl/fields.h"

#include <string>
#include <utility>
#include <vector>

namespace ctl
{

struct selection {
    std::vector<const record_field *> columns;                // empty: the usual ones
    std::vector<std::pair<const record_field *, bool>> order; // true: descending
};

// Takes names of columns with commas between them. In sort, a minus before a name means descending.
// Throws a usage_error that lists the columns if one is not there.
selection select(const record_kind &kind, const std::string &columns, const std::string &sort);

// The records in the order that is asked for. Those that failed come last, unless the port's number
// decides.
void sort_records(std::vector<listed_record> &records, const selection &chosen);

// Whether one of the columns, also of those that are only sorted by, is read from the LUNs
// themselves.
bool wants_identity(const selection &chosen);

// "port, name, model"
std::string column_names(const record_kind &kind);

} // namespace ctl
