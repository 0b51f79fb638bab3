// qbhp defaults: reads and writes the user defaults of a domain.

#include <memory>
#include <optional>
#include <string>

#include <ClientComm/UserDefaults.h>

#include "tools/qbhp/Command.h"
#include "tools/qbhp/Values.h"

namespace qbdkr::tool {
namespace {

struct DefaultsArguments {
  std::string domain;
  std::optional<std::string> key;
  std::string value;
  std::string type;
};

// A domain is one file in the directory of the settings.
void requireDomain(const std::string& domain) {
  if (domain.empty() || domain.find('/') != std::string::npos) {
    throw UsageFailure('"' + domain +
                       "\" cannot be a domain; that of a host is its bundle identifier");
  }
}

Exit readDefaults(const Commands& commands, const DefaultsArguments& arguments, Output& output) {
  requireDomain(arguments.domain);
  auto domain = UserDefaults::persistentDomain(arguments.domain);
  if (!domain) throw Failure("nothing is stored for \"" + arguments.domain + '"');
  PropertyList value(*std::move(domain));
  if (arguments.key) {
    const PropertyList* found = value.dictionary()->find(*arguments.key);
    if (found == nullptr) {
      throw Failure('"' + arguments.domain + "\" has no key \"" + *arguments.key + '"');
    }
    value = PropertyList(*found);
  }
  if (commands.wantsJSON()) {
    output.json(jsonOf(value));
  } else {
    printValue(value, output);
  }
  return Exit::yes;
}

Exit writeDefaults(const DefaultsArguments& arguments) {
  requireDomain(arguments.domain);
  UserDefaults defaults(arguments.domain);
  if (!defaults.setObject(*arguments.key, valueFrom(arguments.value, arguments.type))) {
    throw Failure("a property list cannot hold the key or the value");
  }
  if (!defaults.synchronize()) {
    throw Failure("cannot store the settings of \"" + arguments.domain + '"');
  }
  return Exit::yes;
}

}  // namespace

void addDefaults(Commands& commands) {
  CLI::App& group = commands.addGroup("defaults", "Read and write user defaults");
  const auto arguments = std::make_shared<DefaultsArguments>();

  CLI::App& reading = commands.add(group, "read", "Print the settings of a domain",
                                   [&commands, arguments](Output& output) {
                                     return readDefaults(commands, *arguments, output);
                                   });
  reading.add_option("DOMAIN", arguments->domain, "A bundle identifier")->required()->type_name("");
  reading.add_option("KEY", arguments->key, "One of its keys")->type_name("");
  commands.offerJSON(reading);

  CLI::App& writing = commands.add(group, "write", "Set a key of a domain",
                                   [arguments](Output&) { return writeDefaults(*arguments); });
  writing.add_option("DOMAIN", arguments->domain, "A bundle identifier")->required()->type_name("");
  writing.add_option("KEY", arguments->key, "One of its keys")->required()->type_name("");
  writing.add_option("VALUE", arguments->value, "The new value")->required()->type_name("");
  offerType(writing, arguments->type);
}

}  // namespace qbdkr::tool
