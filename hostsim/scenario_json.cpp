#include "scenario_json.h"

#include "hostsim.h"
#include "messages.h"

#include <algorithm>
#include <bit>
#include <functional>
#include <nlohmann/json.hpp>
#include <set>
#include <utility>
#include <vector>

namespace hostsim
{
namespace
{

constexpr size_t most_levels = 64;

using json = nlohmann::json;

class byte_array : public container
{
  public:
    byte_array(container &owner, const place &at) : owner_(owner), at_(at) {}

    void take(const value &v, const place &here) override
    {
        if (v.what == kind::natural && v.number <= UINT8_MAX)
            bytes_.push_back(static_cast<char>(v.number));
        else
            owner_.take({.what = kind::array, .other = here.index}, at_);
        if (bytes_.size() == too_many_bytes)
            close(at_);
    }
    void close(const place &) override { owner_.take({.what = kind::array, .text = bytes_}, at_); }

  private:
    container &owner_;
    const place &at_;
    std::string bytes_;
};

// Follows the parser through the document, with a stack of the containers that are open.
class document_reader : public nlohmann::json_sax<json>
{
  public:
    document_reader(container &document, size_t readable) : document_(document), readable_(readable)
    {
        open_.reserve(most_levels); // places point to those above them
    }

    bool null() override { return take({.what = kind::null}); }
    bool boolean(bool b) override { return take({.what = kind::boolean, .number = b ? 1U : 0U}); }
    bool number_integer(number_integer_t) override { return take({.what = kind::other_number}); }
    bool number_unsigned(number_unsigned_t n) override
    {
        return take({.what = kind::natural, .number = n});
    }
    bool number_float(number_float_t, const string_t &) override
    {
        return take({.what = kind::other_number});
    }
    bool string(string_t &text) override { return take({.what = kind::text, .text = text}); }
    bool binary(binary_t &) override { return false; } // not in JSON

    bool start_object(size_t) override { return open(false); }
    bool start_array(size_t) override { return open(true); }
    bool end_object() override { return close(); }
    bool end_array() override { return close(); }

    bool key(string_t &name) override
    {
        frame &in = open_.back();
        const auto [known, is_new] = in.names.insert(std::move(name));
        in.next.key = *known;
        if (!is_new)
            in.next.fail("given twice");
        if (!in.what->select(*known))
            in.next.fail("unknown field");
        return true;
    }

    // What the document cannot be read beyond is the caller's to tell.
    bool parse_error(size_t position, const std::string &token, const json::exception &e) override
    {
        if (position > readable_)
            return false;
        std::string what = e.what(); // begins with the exception's name in brackets
        what.erase(0, what.find("] ") + 2);
        const size_t quoted = what.find('\'' + token + '\'');
        if (quoted != std::string::npos)
            what.replace(quoted + 1, token.size(), shown(token));
        throw scenario_error(what);
    }

  private:
    struct frame {
        container *what;
        std::unique_ptr<container> owned; // null for the document
        bool array;
        place next; // of the value that comes next
        std::set<std::string> names{};
    };

    // The place of the value that begins now.
    const place &place_of_next()
    {
        static constexpr place whole_document;
        if (open_.empty())
            return whole_document;
        frame &in = open_.back();
        if (in.array)
            ++in.next.index; // no_index becomes 0
        return in.next;
    }

    bool take(const value &v)
    {
        const place &at = place_of_next();
        if (open_.empty())
            at.fail("not an object");
        open_.back().what->take(v, at);
        return true;
    }

    bool open(bool array)
    {
        const place &at = place_of_next();
        if (open_.size() == most_levels)
            at.fail("deeper than " + std::to_string(most_levels) + " levels");
        std::unique_ptr<container> made;
        if (!open_.empty())
            made = open_.back().what->open(array, at);
        else if (array)
            at.fail("not an object");
        container *const what = open_.empty() ? &document_ : made.get();
        open_.push_back({what, std::move(made), array, {&at}});
        return true;
    }

    bool close()
    {
        const frame &done = open_.back();
        done.what->close(*done.next.up);
        open_.pop_back();
        return true;
    }

    container &document_;
    size_t readable_;
    std::vector<frame> open_;
};

// How many bytes the first character has. 0: it is none.
size_t character_length(std::string_view text)
{
    constexpr uint32_t smallest[] = {0, 0, 0x80, 0x800, 0x10000};
    const auto lead = static_cast<uint8_t>(text.front());
    if (lead < 0x80)
        return lead == 0 ? 0 : 1;
    const auto length = static_cast<size_t>(std::countl_one(lead));
    if (length < 2 || length > 4 || length > text.size())
        return 0;
    uint32_t code = lead & (0x7FU >> length);
    for (const char c : text.substr(1, length - 1)) {
        const auto byte = static_cast<uint8_t>(c);
        if ((byte & 0xC0) != 0x80)
            return 0;
        code = code << 6 | (byte & 0x3FU);
    }
    const bool surrogate = code >= 0xD800 && code <= 0xDFFF;
    return code >= smallest[length] && code <= 0x10FFFF && !surrogate ? length : 0;
}

// Where the first byte is that no document has.
size_t readable_length(std::string_view text)
{
    size_t at = 0;
    while (at < text.size()) {
        const size_t length = character_length(text.substr(at));
        if (length == 0)
            break;
        at += length;
    }
    return at;
}

[[noreturn]] void fail_beyond(std::string_view text, size_t readable)
{
    const std::string_view before = text.substr(0, readable);
    const auto line = std::ranges::count(before, '\n') + 1;
    const size_t column = readable - (before.rfind('\n') + 1) + 1; // npos + 1 is 0
    throw scenario_error("parse error at line " + std::to_string(line) + ", column " +
                         std::to_string(column) +
                         (text[readable] == '\0' ? ": a NUL byte" : ": not UTF-8"));
}

} // namespace

std::string place::text() const
{
    std::string above = up != nullptr ? up->text() : std::string();
    if (!above.empty() && !key.empty())
        above += '.';
    above += shown(key);
    if (index != no_index)
        above += '[' + std::to_string(index) + ']';
    return above;
}

void place::fail(const std::string &what) const
{
    const std::string where = text();
    throw scenario_error(where.empty() ? what : where + ": " + what);
}

std::unique_ptr<container> container::open(bool array, const place &at)
{
    take({.what = array ? kind::array : kind::object, .other = 0}, at);
    at.fail("neither an object nor an array");
}

std::unique_ptr<container> open_bytes(container &owner, const place &at)
{
    return std::make_unique<byte_array>(owner, at);
}

void read_document(std::string_view text, container &document)
{
    // An error before such a byte comes first.
    const size_t readable = readable_length(text);
    document_reader reader(document, readable == text.size() ? std::string_view::npos : readable);
    const bool whole =
        json::sax_parse(text.substr(0, readable), &reader, json::input_format_t::json, true, true);
    if (readable != text.size() || !whole)
        fail_beyond(text, readable);
}

} // namespace hostsim
