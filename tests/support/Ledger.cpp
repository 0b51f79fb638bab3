#include "support/Ledger.h"

#include <algorithm>
#include <utility>

#include "support/ProbeText.h"

namespace qbdkr::test {

Ledger::Ledger(std::filesystem::path transcript)
    : transcript_(std::move(transcript)), latest_{Clock::now(), 0, ""} {}

std::string Ledger::add(const std::string& hostIdentifier) {
  const std::string file = transcript_.path().string() + '.' + hostIdentifier;
  hosts_.emplace(hostIdentifier, Host{AppendedFile(file), {}, {}});
  return file;
}

// The helper agent records a request before it answers, so the transcript, read last, has all that
// the hosts know of.
void Ledger::update() {
  for (auto& [identifier, host] : hosts_) readLog(host);
  readTranscript();
  for (auto& [identifier, host] : hosts_) {
    for (const auto number : host.certain) {
      if (number >= host.served.size() || !host.served[number]) {
        fault("lost: " + std::to_string(number) + " of " + identifier);
      }
    }
    host.certain.clear();
  }
  std::ranges::sort(answers_, {}, &Answer::time);
  for (Answer& answer : answers_) {
    longestGap_ = std::max(longestGap_, answer.time - latest_.time);
    if (answer.time > latest_.time) latest_ = std::move(answer);
  }
  answers_.clear();
}

std::chrono::milliseconds Ledger::takeLongestGap() {
  const auto gap = std::max(longestGap_, Clock::now() - latest_.time);
  longestGap_ = {};
  return std::chrono::duration_cast<std::chrono::milliseconds>(gap);
}

void Ledger::readLog(Host& host) {
  for (const std::string& line : host.log.take()) {
    const auto words = wordsOf(line);
    if (words.at(0) == "answered") {
      ++counts_.answered;
      host.certain.push_back(std::stoul(words.at(1)));
      answers_.push_back({Clock::time_point(std::chrono::microseconds(std::stoll(words.at(2)))),
                          std::stoi(words.at(3)), words.at(4)});
    } else if (words.at(0) == "taken") {
      counts_.taken += words.size() - 1;
      for (std::size_t i = 1; i < words.size(); ++i) host.certain.push_back(std::stoul(words[i]));
    } else {
      ++counts_.failed[words.at(2)];
    }
  }
}

void Ledger::readTranscript() {
  for (const std::string& line : transcript_.take()) {
    const auto words = wordsOf(line);
    if (words.at(1) == "started") {
      ++counts_.starts;
      formerServers_.erase(words[0]);  // another process with the number of an earlier one
    } else if (words.at(1) == "call") {
      noteServer(words[0]);
      if (words.at(3) == "who:" || words.at(3) == "note:") noteService(words);
    }
  }
}

// PROCESS call CLASS METHOD from SENDER NUMBER
void Ledger::noteService(const std::vector<std::string>& words) {
  const auto host = hosts_.find(words.at(5));
  if (host == hosts_.end()) return fault("from an unknown sender: " + words[5]);
  const auto number = std::stoul(words.at(6));
  auto& served = host->second.served;
  if (number >= served.size()) served.resize(number + 1);
  if (served[number]) fault("served twice: " + words[6] + " of " + words[5]);
  served[number] = true;
  ++counts_.served;
}

void Ledger::noteServer(const std::string& process) {
  if (process == server_) return;
  if (formerServers_.contains(process)) {
    fault("process " + process + " served although " + server_ + " did");
  }
  if (!server_.empty()) formerServers_.insert(server_);
  server_ = process;
}

void Ledger::fault(const std::string& text) {
  constexpr std::size_t most = 20;
  if (faults_.size() < most) faults_.push_back(text);
}

}  // namespace qbdkr::test
