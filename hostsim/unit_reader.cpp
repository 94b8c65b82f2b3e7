#include "unit_reader.h"

#include <algorithm>
#include <array>
#include <bit>
#include <filesystem>
#include <utility>

namespace hostsim
{
namespace
{

// ---- Designators ------------------------------------------------------------------------------

enum code_set : uint8_t { binary = 1, ascii = 2, utf8 = 3 };

struct designator_object {
    std::vector<designator> given;
};

template <size_t... Sizes>
std::string to_identifier(const value &v, const place &at)
{
    std::string bytes = hex_bytes(v.what == kind::text ? v.text : std::string_view());
    if (((bytes.size() != Sizes) && ...)) {
        std::string digits;
        ((digits += (digits.empty() ? "" : " or ") + std::to_string(2 * Sizes)), ...);
        at.fail("not \"0x\" and " + digits + " hexadecimal digits");
    }
    return bytes;
}

std::string to_t10(const value &v, const place &at)
{
    constexpr size_t vendor = 8, longest = 255;
    std::string bytes = to_text(v, at, longest);
    if (bytes.size() < vendor)
        at.fail("shorter than 8 bytes");
    return bytes;
}

// Ends with a NUL byte and fills words of four bytes.
std::string to_scsi_name(const value &v, const place &at)
{
    constexpr size_t longest = 251, word = 4;
    std::string name = to_text(v, at, longest);
    if (name.empty() || name.find('\0') != std::string::npos)
        at.fail("empty, or has a NUL byte");
    name.resize(name.size() / word * word + word);
    return name;
}

bool is_ascii(std::string_view bytes)
{
    return std::ranges::all_of(bytes, [](char c) { return c >= ' ' && c <= '~'; });
}

template <uint8_t Type, code_set Code, auto Convert>
constexpr auto designator_of = [](designator_object &into, const value &v, const place &at) {
    std::string bytes = Convert(v, at);
    const uint8_t code = Code != ascii || is_ascii(bytes) ? Code : binary;
    into.given.push_back({Type, code, std::move(bytes)});
};

constexpr member<designator_object> designator_members[] = {
    {"t10", designator_of<1, ascii, to_t10>},
    {"eui64", designator_of<2, binary, to_identifier<8, 12, 16>>},
    {"naa", designator_of<naa_designator, binary, to_identifier<8, 16>>},
    {"scsi_name", designator_of<8, utf8, to_scsi_name>},
};

// As many as page 83h has room for.
class designator_reader : public object_reader<designator_object>
{
  public:
    designator_reader(std::vector<designator> &into, size_t &page_size)
        : object_reader(object_, designator_members), list_(into), page_size_(page_size)
    {
    }

    void close(const place &at) override
    {
        constexpr size_t header = 4;
        if (object_.given.size() != 1)
            at.fail("not exactly one of t10, eui64, naa and scsi_name");
        page_size_ += header + object_.given.front().bytes.size();
        limit(page_size_, UINT16_MAX, "bytes of designators", *at.up);
        list_.push_back(std::move(object_.given.front()));
    }

  private:
    designator_object object_;
    std::vector<designator> &list_;
    size_t &page_size_;
};

// ---- The whole --------------------------------------------------------------------------------

void check(lun_description &d, const place &at)
{
    constexpr uint64_t largest_ratio = 1 << 15; // READ CAPACITY(16) has four bits for it
    d.size = d.given_size.value_or(is_disk(d) ? default_disk_size : 0);
    if (d.size % d.block_size != 0)
        place{&at, "size"}.fail("not a multiple of the block size " + std::to_string(d.block_size));
    if (d.physical_block_size) {
        const uint64_t ratio = *d.physical_block_size / d.block_size;
        if (*d.physical_block_size % d.block_size != 0 || !std::has_single_bit(ratio) ||
            ratio > largest_ratio)
            place{&at, "physical_block_size"}.fail("not the block size " +
                                                   std::to_string(d.block_size) +
                                                   " times a power of two up to 32768");
    }
    for (const auto &[given, name] :
         {std::pair(d.physical_block_size.has_value(), std::string_view("physical_block_size")),
          {d.provisioning.has_value(), "provisioning"}})
        if (given && !is_disk_with_medium(d))
            place{&at, name}.fail("only for a disk with a medium");
}

} // namespace

void unit_reader::close(const place &at)
{
    check(into_, at);
    if (!into_.file)
        return;
    into_.file = std::filesystem::path(r_.folder) / *into_.file;
    r_.files.push_back({&into_, place{&at, "file"}.text()});
}

nested unit_reader::nested_member(std::string_view name) const
{
    return name == "designators" ? nested::array : nested::none;
}

std::unique_ptr<container> unit_reader::open_nested(const place &)
{
    std::vector<designator> &list = into_.designators.emplace();
    return objects([&list, page_size = size_t{0}](const place &) mutable {
        return std::make_unique<designator_reader>(list, page_size);
    });
}

provisioning_type to_provisioning(const value &v, const place &at)
{
    constexpr std::array<std::string_view, 3> names = {"full", "resource", "thin"};
    return static_cast<provisioning_type>(to_choice(v, at, names));
}

} // namespace hostsim
