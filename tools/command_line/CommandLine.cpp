#include "CommandLine.h"

#include <algorithm>
#include <iomanip>
#include <iostream>
#include <sstream>
#include <vector>

#include "VestrelVersion.h"

namespace vestrel::command_line {

namespace {

std::size_t editDistance(const std::string& a, const std::string& b) {
  std::vector<std::size_t> row(b.size() + 1);
  for (std::size_t j = 0; j <= b.size(); ++j) row[j] = j;
  for (std::size_t i = 1; i <= a.size(); ++i) {
    std::size_t diagonal = row[0];
    row[0] = i;
    for (std::size_t j = 1; j <= b.size(); ++j) {
      const std::size_t above = row[j];
      row[j] = std::min({row[j] + 1, row[j - 1] + 1, diagonal + (a[i - 1] == b[j - 1] ? 0 : 1)});
      diagonal = above;
    }
  }
  return row[b.size()];
}

// The innermost command the user named.
const CLI::App* namedCommand(const CLI::App& app) {
  for (const CLI::App* command : app.get_subcommands()) return namedCommand(*command);
  return &app;
}

}  // namespace

std::string nearestOption(const CLI::App& command, const std::string& unknown) {
  const std::string name = unknown.substr(0, unknown.find('='));
  if (name.rfind("--", 0) != 0) return "";
  std::string best;
  std::size_t bestDistance = 0;
  for (const CLI::Option* option : command.get_options()) {
    for (const std::string& longName : option->get_lnames()) {
      const std::size_t distance = editDistance(name, "--" + longName);
      if (best.empty() || distance < bestDistance) {
        best = "--" + longName;
        bestDistance = distance;
      }
    }
  }
  // A slip: a few letters off, and fewer than a third of the name's.
  if (best.empty() || bestDistance == 0 || bestDistance > 2 || bestDistance * 3 > name.size()) return "";
  return best;
}

CLI::Validator numberFrom(double lowest, double highest, const std::string& unit) {
  const auto text = [](double value) {
    std::ostringstream out;
    out << std::setprecision(12) << value;
    return out.str();
  };
  const std::string allowed =
      "give a number from " + text(lowest) + " to " + text(highest) + (unit.empty() ? "" : " (" + unit + ")");
  return CLI::Validator(
      [=](std::string& value) {
        double number = 0;
        std::size_t used = 0;
        try {
          number = std::stod(value, &used);
        } catch (const std::exception&) {
          used = 0;
        }
        if (used == 0 || used != value.size() || !(number >= lowest && number <= highest)) {
          return value + " is out of range: " + allowed;
        }
        return std::string();
      },
      unit.empty() ? "NUMBER" : unit);
}

std::string versionText(const std::string& program) { return program + " " + VESTREL_VERSION_TEXT; }

void addVersionFlag(CLI::App& app, const std::string& program) {
  app.set_version_flag("--version", versionText(program), "print the version and exit");
}

std::optional<int> parse(CLI::App& app, int argc, char** argv, const std::string& program) {
  try {
    app.parse(argc, argv);
  } catch (const CLI::ExtrasError& error) {
    const CLI::App* command = namedCommand(app);
    for (const std::string& extra : command->remaining()) {
      const std::string nearest = nearestOption(*command, extra);
      if (nearest.empty()) continue;
      std::cerr << program << (command == &app ? "" : " " + command->get_name()) << ": " << extra
                << " is not an option; did you mean " << nearest << "?\n"
                << "Run with --help for more information.\n";
      return 2;
    }
    app.exit(error);
    return 2;
  } catch (const CLI::ParseError& error) {
    const int status = app.exit(error);
    return status == 0 ? 0 : 2;
  }
  return std::nullopt;
}

}  // namespace vestrel::command_line
