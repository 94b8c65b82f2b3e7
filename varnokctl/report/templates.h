// The parts of the page, from the files of the same names in this folder.
#pragma once

#include <kainjow/mustache.hpp>
#include <string>

namespace ctl
{

namespace report_template
{
extern const char *const page_begin,
    *const finding_rule, *const hosts_table, *const host_begin, *const picture,
                                                                    *const host_tables,
                                                                        *const device_group,
                                                                            *const host_end,
                                                                                *const page_end;
}

using page_data = kainjow::mustache::data;
using page_list = kainjow::mustache::list;

// The template with the data. All data are escaped.
std::string filled(const char *text, const page_data &data);

} // namespace ctl
