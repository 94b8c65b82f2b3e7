#include "varnokctl/captured_record.h"

#include <arpa/inet.h>
#include <charconv>

namespace ctl
{
namespace
{

// Nothing but digits of the base.
bool parse(std::string_view digits, int base, uint64_t &value)
{
    const char *const end = digits.data() + digits.size();
    const auto [behind, error] = std::from_chars(digits.data(), end, value, base);
    return error == std::errc() && behind == end;
}

} // namespace

bool hex_into(std::span<uint8_t> field, std::string_view text, std::string_view separator)
{
    for (size_t at = 0; at < field.size(); ++at) {
        uint64_t byte = 0;
        const std::string_view gap = at == 0 ? "" : separator;
        if (text.size() < gap.size() + 2 || !text.starts_with(gap) ||
            !parse(text.substr(gap.size(), 2), 16, byte))
            return false;
        field[at] = static_cast<uint8_t>(byte);
        text.remove_prefix(gap.size() + 2);
    }
    return text.empty();
}

void captured_record::address(const char *key, std::span<uint8_t> field) const
{
    const int family = field.size() == sizeof(in_addr) ? AF_INET : AF_INET6;
    if (has(key) && inet_pton(family, captured_text(at(key)).c_str(), field.data()) != 1)
        fail(key, "no IP address");
}

// What is no number may be one in hexadecimal.
uint64_t captured_record::number_up_to(const char *key, uint64_t most) const
{
    const capture_json &value = at(key);
    if (value.is_null())
        return 0;
    uint64_t number = 0;
    if (value.is_number_unsigned())
        number = value.get<uint64_t>();
    else if (const std::string text = captured_text(value);
             !text.starts_with("0x") || !parse(std::string_view(text).substr(2), 16, number))
        fail(key, "no number");
    if (number > most)
        fail(key, "too large");
    return number;
}

uint64_t captured_record::large_number(const char *key, std::string_view unit) const
{
    const std::string text = at(key).is_string() ? captured_text(at(key)) : "";
    uint64_t number = 0;
    if (text.ends_with(unit) && !text.starts_with("0x") &&
        parse(std::string_view(text).substr(0, text.size() - unit.size()), 10, number))
        return number;
    return number_up_to(key, UINT64_MAX);
}

} // namespace ctl
