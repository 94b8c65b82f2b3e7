// Values and documents in JSON. Only sources that build documents include this: it compiles slowly.
#pragma once

#include "varnokctl/failure.h"
#include "varnokctl/lun_address.h"

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace ctl
{

using json = nlohmann::ordered_json;

// JSON readers may lose digits of larger numbers.
constexpr uint64_t largest_exact_number = 1ULL << 53;

// What a field holds, for the eye and for a program.
// NOLINTNEXTLINE(bugprone-exception-escape): moving a json does not throw
struct field_value {
    std::string text;
    json data;
};

field_value same(const std::string &text);

// An empty text is null in a document.
json or_null(const std::string &text);

// A code with its word, which may be empty.
field_value coded_value(uint64_t code, const std::string &word);

// A LUN by its number, its addressing method and its bytes.
field_value lun_value(const lun_levels &lun);

json new_document(const char *command);

// The document with the failures, as text. It is complete when there are none.
std::string finished_text(json &document, const std::vector<failed_call> &failures, bool ascii);

} // namespace ctl
