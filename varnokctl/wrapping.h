// Breaks text into lines.
#pragma once

#include "varnokctl/text.h"

#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace ctl
{

// The parts with a gap between them, in lines that fit the style's width. A part stays on one line,
// and is cut if it has to be. Empty parts are left out. The first line begins with first, and the
// others with rest.
std::string wrapped(std::span<const std::string> parts, std::string_view gap,
                    const std::string &first, const std::string &rest, const output_style &style);

// The same with the words of a text as its parts.
std::string wrapped(const std::string &text, const std::string &first, const std::string &rest,
                    const output_style &style);

// "1", "1 and 2", "1, 2 and 3"
std::string listed(std::span<const std::string> parts);

} // namespace ctl
