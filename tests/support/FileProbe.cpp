// A host application that changes files as its command line says, and ends. Its single thread makes
// the same system calls in the same order each time.

#include <algorithm>
#include <functional>
#include <iostream>
#include <map>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

#include <ClientComm/UserDefaults.h>
#include <QBDKRProductClient/QBHPHelperCommunicate.h>

#include "ClientComm/HostConfiguration.h"
#include "ProductClient/SystemCalls.h"

namespace {

using qbdkr::HostConfiguration;
using qbdkr::QBHPHelperCommunicate;
using qbdkr::SystemCalls;
using qbdkr::UserDefaults;
using Body = std::function<void()>;

// The body of the start-up thread, which runs on the main one.
Body& startUp() {
  static Body body;
  return body;
}

SystemCalls withoutThreads() {
  SystemCalls system;
  system.startThread = [](Body body) {
    startUp() = std::move(body);
    return true;
  };
  return system;
}

class Communicator : public QBHPHelperCommunicate {
 public:
  Communicator()
      : QBHPHelperCommunicate(HostConfiguration(), UserDefaults::standard(), withoutThreads()) {}
};

QBHPHelperCommunicate& communicator() {
  static Communicator instance;
  return instance;
}

// Records the product, installs the helper agent, and tries to launch it.
void share() {
  communicator();
  const Body body = std::exchange(startUp(), {});
  if (!body) throw std::logic_error("the start-up thread was not asked for");
  body();
}

using Operation = std::function<void(const std::string&)>;

const std::map<std::string, Operation, std::less<>>& operations() {
  static const std::map<std::string, Operation, std::less<>> table{
      {"share", [](const std::string&) { share(); }},
      // Change the files that a start changes once the helper agent is launched.
      {"first-start", [](const std::string&) { communicator().firstStartPID(); }},
      {"save-tips", [](const std::string&) { communicator().saveTipsEnable(); }},
      {"save-advertising", [](const std::string&) { communicator().saveEnableAD(); }},
      {"tips", [](const std::string& value) { communicator().setTipsEnable(value == "1"); }},
      {"advertising", [](const std::string& value) { communicator().setEnableAD(value == "1"); }},
      {"collect", [](const std::string& value) { communicator().setCollectDataPID(value); }},
      {"data-path", [](const std::string& value) { communicator().initDataCollectionPath(value); }},
  };
  return table;
}

bool run(std::string_view word) {
  const auto name = word.substr(0, word.find('='));
  const auto operation = operations().find(name);
  if (operation == operations().end()) return false;
  operation->second(std::string(word.substr(std::min(name.size() + 1, word.size()))));
  return true;
}

}  // namespace

int main(int count, char** words) {
  for (int i = 1; i < count; ++i) {
    if (run(words[i])) continue;
    std::cerr << "unknown operation " << words[i] << '\n';
    return 2;
  }
  return 0;
}
