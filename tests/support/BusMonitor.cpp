#include "support/BusMonitor.h"

#include <algorithm>
#include <span>
#include <utility>

#include "support/ProbeText.h"

namespace qbdkr::test {
namespace {

using Words = std::vector<std::string>;
using Titles = std::map<std::string, std::string>;

const std::string busService = "org.freedesktop.DBus";

std::string textOf(const std::string& word) { return decoded({&word, 1}).front(); }

bool isText(const std::string& word) { return word != "[" && word != "]" && word != absentWord; }

// Returns words as a reader wants them: the texts in quotation marks, empty ones included.
std::string readable(std::span<const std::string> words) {
  std::string line;
  for (const std::string& word : words) {
    line += ' ' + (isText(word) ? '"' + textOf(word) + '"' : word);
  }
  return line;
}

// Returns the signature, and the arguments after it.
std::string form(std::span<const std::string> words) {
  return '(' + textOf(words.front()) + ')' + readable(words.subspan(1));
}

std::vector<std::string> textsOf(std::span<const std::string> words) {
  std::vector<std::string> texts;
  for (const std::string& word : words) {
    if (isText(word)) texts.push_back(textOf(word));
  }
  return texts;
}

// Reads the lines of the monitor in their order.
class Reader {
 public:
  Reader(const Titles& titles, const BusMonitor::Rule& rule) : titles_(titles), rule_(rule) {}

  // Learns the processes and their titles. Read all lines afterwards: a process may send before it
  // owns its name.
  void learn(const Words& words) {
    if (words.front() == "process") processes_[words.at(1)] = words.at(2);
    if (!isOwnerChange(words) || words.at(9) == "%") return;
    const std::string& process = processes_[words.at(9)];
    if (labels_.contains(process)) return;
    const std::string& title = titles_.at(words.at(7));
    labels_[process] = title + ' ' + std::to_string(++counts_[title]);
  }

  void read(const Words& words) {
    if (words.front() == "call") readCall(words);
    if (words.front() == "return" || words.front() == "error") readAnswer(words);
    if (words.front() == "signal") readSignal(words);
  }

  [[nodiscard]] std::string description() const {
    std::string text = owners_;
    for (const auto& [name, stream] : streams_) {
      text += '\n' + name + '\n';
      for (const std::string& line : stream) text += line;
    }
    return text;
  }

 private:
  struct Place {
    std::vector<std::string>* stream = nullptr;  // null if the call is left out
    std::size_t number = 0;
  };

  [[nodiscard]] bool isOwnerChange(const Words& words) const {
    return words.front() == "signal" && words.at(1) == busService &&
           words.at(5) == "NameOwnerChanged" && titles_.contains(words.at(7));
  }

  std::string titleOf(const std::string& connection) {
    const auto found = labels_.find(processes_[connection]);
    return found == labels_.end() ? "another process" : found->second;
  }

  std::string receiverOf(const std::string& name) {
    if (name.starts_with(':')) return titleOf(name);
    return owner_.contains(name) ? titleOf(owner_[name]) : "without an owner";
  }

  void readCall(const Words& words) {
    const std::string& from = words.at(2);
    const std::string& to = words.at(3);
    if (from == busService || to == busService) return;
    const std::span form_(words.begin() + 8, words.end());
    const auto name = rule_(titleOf(from) + " -> " + receiverOf(to) + ", sent to " + to,
                            textsOf(form_.subspan(1)));
    Place place;
    if (name) {
      place.stream = &streams_[*name];
      place.number = place.stream->size();
      place.stream->push_back("  " + words.at(6) + ' ' + words.at(4) + ' ' + words.at(5) + ' ' +
                              words.at(7) + ' ' + form(form_) + '\n');
    }
    if (words.at(7).starts_with("reply")) calls_[from + ' ' + words.at(1)] = place;
  }

  void readAnswer(const Words& words) {
    const std::string& from = words.at(2);
    const std::string& to = words.at(3);
    const auto call = calls_.find(to + ' ' + words.at(1));
    if (call == calls_.end() && (from == busService || to == busService)) return;
    std::string line = "    " + words.front() + (from == busService ? " of the bus" : "");
    const bool isError = words.front() == "error";
    if (isError) line += ' ' + words.at(4);
    // The bus says its errors in its own words.
    if (from != busService) line += ' ' + form(std::span(words).subspan(isError ? 5 : 4));
    line += '\n';
    if (call == calls_.end()) {
      streams_[titleOf(from) + " -> " + receiverOf(to) + ", without a question"].push_back(line);
      return;
    }
    if (call->second.stream != nullptr) call->second.stream->at(call->second.number) += line;
    calls_.erase(call);
  }

  void readSignal(const Words& words) {
    if (words.at(1) != busService) {
      streams_[titleOf(words.at(1)) + " -> all"].push_back("  signal" + readable(words) + '\n');
    } else if (isOwnerChange(words)) {
      const std::string& name = words.at(7);
      if (words.at(8) != "%") owners_ += titleOf(words.at(8)) + " loses " + name + '\n';
      if (words.at(9) != "%") owners_ += titleOf(words.at(9)) + " owns " + name + '\n';
      if (words.at(9) == "%") {
        owner_.erase(name);
      } else {
        owner_[name] = words.at(9);
      }
    }
  }

  const Titles& titles_;
  const BusMonitor::Rule& rule_;
  std::map<std::string, std::string> processes_;  // of connections
  std::map<std::string, std::string> labels_;     // of processes
  std::map<std::string, unsigned> counts_;        // of titles
  std::map<std::string, std::string> owner_;      // of names: connections
  std::map<std::string, std::vector<std::string>> streams_;
  std::map<std::string, Place> calls_;  // those that are not answered
  std::string owners_;
};

}  // namespace

BusMonitor::BusMonitor(const Peer& peer) : process_(peer.begin({"monitor", "all"})) {
  process_->waitForOutput([](const std::string& line) { return line == "ready"; });
}

void BusMonitor::waitForLines(const std::string& start, const std::string& words,
                              std::size_t count) {
  std::size_t seen = 0;
  process_->waitForOutput([&](const std::string& line) {
    if (line.starts_with(start) && line.find(words) != std::string::npos) ++seen;
    return seen == count;
  });
}

void BusMonitor::waitForCalls(const std::string& method, std::size_t count) {
  waitForLines("call ", ' ' + method + " [", count);
}

void BusMonitor::waitForMember(const std::string& member, std::size_t count) {
  waitForLines("call ", ' ' + member + ' ', count);
}

void BusMonitor::waitForOwner(const std::string& name, std::size_t count) {
  waitForLines("signal ", "NameOwnerChanged sss " + name + " % :", count);
}

void BusMonitor::waitForLoss(const std::string& name, std::size_t count) {
  std::size_t seen = 0;
  const std::string change = " NameOwnerChanged sss " + name + " :";
  process_->waitForOutput([&](const std::string& line) {
    if (line.starts_with("signal ") && line.find(change) != std::string::npos &&
        line.ends_with(" %")) {
      ++seen;
    }
    return seen == count;
  });
}

std::string BusMonitor::conversation(const Titles& titles, const Rule& rule) const {
  std::vector<Words> lines;
  for (const std::string& line : process_->output()) {
    Words words = wordsOf(line);
    if (words.size() > 1) lines.push_back(std::move(words));
  }
  Reader reader(titles, rule);
  for (const Words& words : lines) reader.learn(words);
  for (const Words& words : lines) reader.read(words);
  return reader.description();
}

}  // namespace qbdkr::test
