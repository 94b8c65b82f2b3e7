// scenario_source.h - where a scenario comes from, and how it travels to the program's processes.
#pragma once

#include "hostsim.h"

#include <memory>
#include <optional>
#include <string>

namespace hostsim
{

// The environment of a program on a simulated host.
namespace environment
{
inline constexpr char scenario[] = "VARNOK_HOST_SCENARIO"; // an absolute path, or a text
inline constexpr char folder[] = "VARNOK_HOST_FOLDER";     // of the text's relative file names
inline constexpr char lsof[] = "VARNOK_HOST_LSOF";         // set: the library gets the host's own
inline constexpr char timeout[] = "VARNOK_HOST_TIMEOUT";   // of real targets, in seconds
} // namespace environment

struct scenario_source {
    std::string name; // for messages, fit for a terminal
    std::string path; // absolute, or empty: then there is the text
    std::string text;
    std::string folder; // where relative file names start; empty: beside the file
};

// All of these throw scenario_error, which begins with the source's name.

// A regular file stays where it is. "-" is standard input. This and all else can be read only once
// and is read here.
scenario_source named_source(const std::string &name);
scenario_source text_source(const std::string &name, std::string text);
void pass_on(const scenario_source &source); // by this process's environment
scenario_source passed_source();             // the same, in the program

std::unique_ptr<host> load(const scenario_source &source);

// Reads a document to its end. The message does not name it.
std::string document_text(const std::string &path);

} // namespace hostsim
