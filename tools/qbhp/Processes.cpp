// qbhp ps: lists the running applications.

#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <ClientComm/Bundle.h>

#include "Platform/Processes/RunningApplications.h"
#include "Platform/Text/Text.h"
#include "Platform/Workspace/Workspace.h"
#include "tools/qbhp/Command.h"

namespace qbdkr::tool {
namespace {

// Whether events to an identifier reach the process that is listed. Absent if the bus was too slow
// to say it.
using Reached = std::optional<bool>;

struct Row {
  RunningApplication application;
  std::optional<std::string> identifier;
  std::optional<std::string> version;
  Reached isReached;
  std::optional<pid_t> reachedInstead;
};

// Asks the bus once for each identifier, and no more after a time-out: each costs 5 s.
class BusInquiry {
 public:
  void complete(Row& row) {
    row.isReached = false;
    if (!row.identifier || row.identifier->empty()) return;
    const auto known = answers_.find(*row.identifier);
    if (known == answers_.end() && isTooSlow_) {
      row.isReached = std::nullopt;
      return;
    }
    const auto process = known != answers_.end() ? known->second : ask(*row.identifier);
    row.isReached = process == row.application.processID;
    if (process && !*row.isReached) row.reachedInstead = process;
  }

 private:
  std::optional<pid_t> ask(const std::string& identifier) {
    constexpr std::chrono::seconds slow(4);
    const auto start = std::chrono::steady_clock::now();
    const auto process = reachedProcess(identifier);
    isTooSlow_ = std::chrono::steady_clock::now() - start > slow;
    answers_.emplace(identifier, process);
    return process;
  }

  std::map<std::string, std::optional<pid_t>> answers_;
  bool isTooSlow_ = false;
};

std::vector<Row> rowsOf(std::vector<RunningApplication> applications) {
  std::vector<Row> rows;
  BusInquiry inquiry;
  for (auto& application : applications) {
    if (application.processID == ::getpid()) continue;
    Row row{std::move(application), {}, {}, {}, {}};
    row.identifier = row.application.info->text(kCFBundleIdentifierKey);
    row.version = row.application.info->text(kCFBundleVersionKey);
    inquiry.complete(row);
    rows.push_back(std::move(row));
  }
  return rows;
}

template <class Value>
JSON orNull(const std::optional<Value>& value) {
  return value ? JSON(*value) : JSON(nullptr);
}

JSON listOf(const std::vector<Row>& rows) {
  JSON list = JSON::array();
  for (const Row& row : rows) {
    list.push_back({{"process", row.application.processID},
                    {"user", row.application.effectiveUser},
                    {"identifier", orNull(row.identifier)},
                    {"version", orNull(row.version)},
                    {"bundle", row.application.bundlePath},
                    {"onBus", orNull(row.isReached)},
                    {"busProcess", row.isReached == true ? JSON(row.application.processID)
                                                         : orNull(row.reachedInstead)},
                    {"residentBytes", orNull(row.application.residentBytes)}});
  }
  return list;
}

std::string memoryText(std::optional<std::uint64_t> bytes) {
  if (!bytes) return "-";
  constexpr double mebibyte = 1 << 20;
  std::array<char, 32> text{};
  const int size =
      std::snprintf(text.data(), text.size(), "%.1f", static_cast<double>(*bytes) / mebibyte);
  return {text.data(), static_cast<std::size_t>(size)};
}

std::string busText(const Row& row) {
  if (!row.isReached) return "?";
  if (*row.isReached) return "yes";
  return row.reachedInstead ? std::to_string(*row.reachedInstead) : "no";
}

using Cells = std::array<std::string, 6>;
constexpr std::size_t identifierCell = 4;
constexpr std::size_t bundleCell = 5;
constexpr std::size_t gap = 2;

void printTable(const std::vector<Row>& rows, std::optional<std::size_t> columns, Output& output) {
  std::vector<Cells> table{{"PID", "MIB", "BUS", "VERSION", "IDENTIFIER", "BUNDLE"}};
  for (const Row& row : rows) {
    table.push_back({std::to_string(row.application.processID),
                     memoryText(row.application.residentBytes), busText(row),
                     escaped(row.version.value_or("-")), escaped(row.identifier.value_or("-")),
                     escaped(row.application.bundlePath)});
  }
  std::array<std::size_t, bundleCell> widths{};
  for (const Cells& cells : table) {
    for (std::size_t i = 0; i < widths.size(); ++i) {
      widths[i] = std::max(widths[i], columnsOf(cells[i]));
    }
  }
  constexpr std::size_t widestVersion = 12;
  constexpr std::size_t widestIdentifier = 30;
  if (columns) {
    widths[identifierCell - 1] = std::min(widths[identifierCell - 1], widestVersion);
    widths[identifierCell] = std::min(widths[identifierCell], widestIdentifier);
  }
  for (const Cells& cells : table) {
    std::string line;
    std::size_t used = 0;
    for (std::size_t i = 0; i < widths.size(); ++i) {
      const std::string cell = shortenedAtTheLeft(cells[i], widths[i]);
      const std::string padding(widths[i] - columnsOf(cell), ' ');
      const bool isNumber = i < 2;
      line += (isNumber ? padding + cell : cell + padding) + std::string(gap, ' ');
      used += widths[i] + gap;
    }
    const std::size_t room =
        columns ? std::max<std::size_t>(*columns, used + 10) - used : cells[bundleCell].size();
    line += shortenedAtTheLeft(cells[bundleCell], room);
    output.line(output.styled(&cells == &table.front() ? Style::heading : Style::plain, line));
  }
}

}  // namespace

void addProcesses(Commands& commands) {
  const auto isWide = std::make_shared<bool>(false);
  CLI::App& command =
      commands.add("ps", "List the running applications", [&commands, isWide](Output& output) {
        auto applications = runningApplications();
        if (!applications) throw Failure("cannot read the process table");
        const auto rows = rowsOf(*std::move(applications));
        if (commands.wantsJSON()) {
          output.json(listOf(rows));
        } else {
          printTable(rows, *isWide ? std::nullopt : std::optional(output.columns()), output);
        }
        return Exit::yes;
      });
  command.add_flag("--wide", *isWide, "Do not shorten anything");
  commands.offerJSON(command);
  command.footer(
      std::string("BUS says whether events reach the process: yes, no, or the other process that\n"
                  "they reach. MIB is its resident memory.\n\n") +
      exitCodes);
}

}  // namespace qbdkr::tool
