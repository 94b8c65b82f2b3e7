// Texts from drivers and devices on their way to a terminal, sense data, and LUNs.
#include "varnokctl/text.h"

#include "platform.h"
#include "varnokctl/lun_address.h"
#include "varnokctl/sense.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <vector>

namespace
{

bool is_plain(char c) { return c >= ' ' && c < 0x7F; }

// Printable, and back to the bytes by its escapes alone.
void show_field(std::span<const uint8_t> field, bool utf8)
{
    const std::string shown = ctl::field_text(field, {.utf8 = utf8});
    REQUIRE(std::ranges::all_of(
        shown, [utf8](char c) { return is_plain(c) || (utf8 && (c & 0x80) != 0); }));
    std::vector<uint8_t> back;
    for (size_t i = 0; i < shown.size(); ++i) {
        const bool escape = shown[i] == '\\';
        back.push_back(escape
                           ? static_cast<uint8_t>(std::stoul(shown.substr(i + 2, 2), nullptr, 16))
                           : static_cast<uint8_t>(shown[i]));
        i += escape ? 3 : 0;
    }
    REQUIRE(std::equal(back.begin(), back.end(), field.begin()));
    const auto end = std::ranges::find(field, 0);
    REQUIRE(std::all_of(field.begin() + static_cast<ptrdiff_t>(back.size()), end,
                        [](uint8_t c) { return c == ' '; }));

    REQUIRE(nlohmann::json::parse(nlohmann::json(shown).dump(-1, ' ', true)) == shown);
    for (size_t width = 4; width < 20; ++width)
        REQUIRE(ctl::display_width(ctl::shortened(shown, width, {.utf8 = utf8})) <= width);
}

void show_sense(std::span<const uint8_t> buffer)
{
    const auto sense = ctl::decode_sense(buffer);
    if (!sense)
        return;
    REQUIRE(sense->raw.data() == buffer.data() && sense->raw.size() <= buffer.size());
    REQUIRE(!ctl::key_text(*sense).empty());
    REQUIRE(std::ranges::all_of(ctl::code_text(*sense), is_plain));
}

void show_lun(bytes input)
{
    ctl::lun_levels lun{};
    lun.levels_1_and_2 = input.number<uint32_t>();
    lun.levels_3_and_4 = input.number<uint32_t>();
    REQUIRE(ctl::parse_lun("0x" + ctl::lun_bytes(lun)) == lun);
    REQUIRE(std::ranges::all_of(ctl::lun_number(lun), is_plain));
    const auto form = ctl::lun_form_of(lun);
    const auto number = form.number ? ctl::parse_lun(std::to_string(*form.number)) : std::nullopt;
    if (number && (form.method == "peripheral" || form.method == "flat"))
        REQUIRE(ctl::lun_form_of(*number).number == form.number);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::span all(data, size);
    show_field(all, false);
    show_field(all, true);
    show_sense(all.first(std::min<size_t>(size, 256)));
    show_lun({data, size});
    ctl::parse_lun({reinterpret_cast<const char *>(data), size});
    return 0;
}
