// Reading a tool's command line with CLI11, the same way in both tools:
// help and version exit 0, every usage error exits 2 with CLI11's message,
// and an option that is not one is answered with the nearest that is.
#pragma once

#include <CLI/CLI.hpp>
#include <optional>
#include <string>

namespace vestrel::command_line {

// The tool's version as --version prints it: "<program> 0.3.0 (commit
// <hash>)", the commit when built from a git checkout.
std::string versionText(const std::string& program);
// Adds --version to app: prints versionText and exits 0.
void addVersionFlag(CLI::App& app, const std::string& program);

// Parses; returns the exit status when the command must end here (help
// printed: 0; a usage error said on standard error: 2), nothing when it
// goes on.
std::optional<int> parse(CLI::App& app, int argc, char** argv, const std::string& program);

// The long option of command (or, failing that, of the tool) nearest to an
// unknown one, when one is near enough to be a slip ("--second" for
// "--seconds"); "" otherwise.
std::string nearestOption(const CLI::App& command, const std::string& unknown);

// A number from lowest to highest; anything else is refused with the value
// and what is allowed ("--seconds: -1 is out of range: give a number from 0.001
// to 86400").
CLI::Validator numberFrom(double lowest, double highest, const std::string& unit = "");

}  // namespace vestrel::command_line
