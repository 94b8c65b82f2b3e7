#include "varnokctl/wrapping.h"

#include <algorithm>
#include <sstream>

namespace ctl
{

std::string wrapped(std::span<const std::string> parts, std::string_view gap,
                    const std::string &first, const std::string &rest, const output_style &style)
{
    constexpr size_t least_width = 8; // of a part, however narrow the output is
    std::string text;
    std::string line = first;
    bool begun = false;
    for (const std::string &part : parts) {
        if (part.empty())
            continue;
        if (begun && display_width(line) + gap.size() + display_width(part) > style.width) {
            text += trimmed(line) + '\n';
            line = rest;
            begun = false;
        }
        line += begun ? gap : "";
        const size_t used = std::min(display_width(line), style.width);
        line += shortened(part, std::max(style.width - used, least_width), style);
        begun = true;
    }
    return text + trimmed(line) + '\n';
}

std::string wrapped(const std::string &text, const std::string &first, const std::string &rest,
                    const output_style &style)
{
    std::vector<std::string> words;
    std::istringstream stream(text);
    for (std::string word; std::getline(stream, word, ' ');)
        words.push_back(word);
    return wrapped(words, " ", first, rest, style);
}

std::string listed(std::span<const std::string> parts)
{
    std::string text;
    for (size_t at = 0; at < parts.size(); ++at) {
        const char *const before = at == 0 ? "" : at + 1 == parts.size() ? " and " : ", ";
        text += before + parts[at];
    }
    return text;
}

} // namespace ctl
