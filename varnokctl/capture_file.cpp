#include "varnokctl/capture_file.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <fmt/format.h>
#include <memory>

namespace ctl
{
namespace
{

constexpr size_t most_bytes = size_t{256} << 20;
constexpr size_t most_values = size_t{32} << 20; // each takes more memory than its text
constexpr size_t most_levels = 64;

[[noreturn]] void fail(const std::string &why) { throw capture_error(why); }

[[noreturn]] void fail_by_system() { throw std::system_error(errno, std::generic_category()); }

std::string read_to_end(std::FILE *file)
{
    std::string text;
    std::array<char, 65536> piece;
    while (const size_t size = std::fread(piece.data(), 1, piece.size(), file)) {
        text.append(piece.data(), size);
        if (text.size() > most_bytes)
            fail(fmt::format("more than {} MiB", most_bytes >> 20));
    }
    if (std::ferror(file) != 0)
        fail_by_system();
    return text;
}

// The parser's message quotes the text, which may be long.
std::string reason(const capture_json::exception &error)
{
    constexpr size_t longest = 200;
    const std::string_view what = error.what(); // begins with the exception's name in brackets
    return std::string(what.substr(what.find("] ") + 2, longest));
}

// The parser can look for itself, but then it takes quadratic time. This sees what the parser sees,
// up to the first error.
void check_limits(std::string_view text)
{
    size_t values = 1; // at most
    size_t levels = 0;
    bool quoted = false;
    for (size_t at = 0; at < text.size(); ++at) {
        const char c = text[at];
        if (c == '"')
            quoted = !quoted;
        else if (quoted)
            at += c == '\\' ? 1 : 0; // what follows stands for itself
        else if (c == '[' || c == '{')
            ++levels;
        else if ((c == ']' || c == '}') && levels != 0)
            --levels;
        values += !quoted && (c == ',' || c == '[' || c == '{') ? 1U : 0U;
        if (levels > most_levels)
            fail(fmt::format("deeper than {} levels", most_levels));
        if (values > most_values)
            fail("too many values");
    }
}

// ---- The form of a capture --------------------------------------------------------------------

void require(bool good, const std::string &where, const char *what)
{
    if (!good)
        fail(where + ": " + what);
}

const capture_json &member(const capture_json &object, const char *key, const std::string &where)
{
    const auto found = object.find(key);
    require(found != object.end(), where + key, "missing");
    return *found;
}

// Calls check(object, where) for each element of the list.
template <class Check>
void check_list(const capture_json &owner, const char *key, const std::string &where,
                const Check &check)
{
    const capture_json &list = member(owner, key, where);
    require(list.is_array(), where + key, "not an array");
    for (size_t at = 0; at < list.size(); ++at) {
        const std::string place = fmt::format("{}{}[{}]", where, key, at);
        require(list[at].is_object(), place, "not an object");
        check(list[at], place + '.');
    }
}

bool is_plain(const capture_json &value)
{
    constexpr size_t longest = 4096; // no field of a record is as long
    const auto is_byte = [](const capture_json &element) {
        return element.is_number_unsigned() && element <= UINT8_MAX;
    };
    if (value.is_string())
        return value.get_ref<const std::string &>().size() <= longest;
    if (value.is_array())
        return value.size() <= longest && std::ranges::all_of(value, is_byte);
    return value.is_number_unsigned();
}

// Checks the members of a record that are neither lists nor records themselves.
void check_values(const capture_json &record, const std::string &where)
{
    constexpr std::array<std::string_view, 4> inner = {"sessions", "target", "luns", "designators"};
    for (const auto &[key, value] : record.items())
        if (!is_plain(value) && !(key == "logged_in" && value.is_boolean()) &&
            std::ranges::find(inner, key) == inner.end())
            fail(where + key + ": neither a number nor a text of at most 4096 bytes");
}

void check_unit(const capture_json &unit, const std::string &where)
{
    check_values(unit, where);
    if (unit.contains("designators"))
        check_list(unit, "designators", where, check_values);
}

class form_check
{
  public:
    explicit form_check(const capture_json &document) : document_(document) {}

    void check()
    {
        require(document_.is_object(), "document", "not an object");
        require(member(document_, "schema", "") == "varnok/1", "schema", "not varnok/1");
        require(member(document_, "command", "") == "capture", "command", "not capture");
        check_failures();
        if (document_.contains("devices"))
            check_devices();
        check_list(document_, "ports", "", [&](const capture_json &port, const std::string &in) {
            check_once(port, in);
            check_values(port, in);
            check_list(port, "sessions", in,
                       [&](const auto &session, const auto &there) { check(session, there); });
        });
    }

  private:
    void check_failures()
    {
        const capture_json &complete = member(document_, "complete", "");
        require(complete.is_boolean(), "complete", "neither true nor false");
        const auto check = [](const capture_json &failure, const std::string &in) {
            for (const char *key : {"call", "meaning"})
                require(member(failure, key, in).is_string(), in + key, "not a text");
            const auto name = failure.find("name");
            require(name == failure.end() || name->is_null() || name->is_string(), in + "name",
                    "not a text");
        };
        check_list(document_, "failures", "", check);
        require(complete == document_["failures"].empty(), "failures", "do not fit complete");
    }

    void check_devices()
    {
        const capture_json &devices = document_["devices"];
        require(devices.is_object(), "devices", "not an object");
        for (const auto &[name, unit] : devices.items()) {
            const std::string where = "devices." + name;
            require(unit.is_object(), where, "not an object");
            check_unit(unit, where + '.');
        }
    }

    // A scenario may have copies, a capture has none.
    static void check_once(const capture_json &object, const std::string &in)
    {
        require(!object.contains("repeat"), in + "repeat", "not in a capture");
    }

    void check(const capture_json &session, const std::string &in)
    {
        check_once(session, in);
        check_values(session, in);
        if (session.contains("target")) {
            require(session["target"].is_object(), in + "target", "not an object");
            check_values(session["target"], in + "target.");
        }
        check_list(session, "luns", in, [&](const capture_json &lun, const std::string &there) {
            const auto device = lun.find("device");
            check_unit(lun, there);
            if (device == lun.end())
                return;
            const bool known =
                device->is_string() && document_.contains("devices") &&
                document_["devices"].contains(device->get_ref<const std::string &>());
            require(known, there + "device", "not one of the devices");
        });
    }

    const capture_json &document_;
};

} // namespace

std::string capture_text(const std::string &path)
{
    if (path == "-")
        return read_to_end(stdin);
    const std::unique_ptr<std::FILE, decltype(&std::fclose)> file(std::fopen(path.c_str(), "rb"),
                                                                  std::fclose);
    if (file == nullptr)
        fail_by_system();
    return read_to_end(file.get());
}

capture_json parse_capture(std::string_view text)
try {
    check_limits(text);
    capture_json document = capture_json::parse(text);
    form_check(document).check();
    return document;
} catch (const capture_json::exception &error) {
    fail(reason(error));
}

} // namespace ctl
