// qbhp plist and qbhp strings: read, write and convert property lists and strings files.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>

#include "Platform/Base/Descriptor.h"
#include "Platform/Files/FileLock.h"
#include "Platform/Files/Files.h"
#include "Platform/PropertyLists/PropertyListReader.h"
#include "Platform/PropertyLists/PropertyListWriter.h"
#include "Platform/PropertyLists/TextPropertyList.h"
#include "Platform/PropertyLists/XMLBounds.h"
#include "Platform/Text/Text.h"
#include "tools/qbhp/Command.h"
#include "tools/qbhp/Values.h"

namespace qbdkr::tool {
namespace {

using Dictionary = PropertyList::Dictionary;

struct ListArguments {
  std::string file;
  std::optional<std::string> key;
  std::string value;
  std::string type;
  std::string form;
  std::string outputFile;
  bool dropsComments = false;
};

// A property list in any of its forms, and a strings file.
enum class FileKind { list, strings };

std::string bytesOf(const std::string& path) {
  auto contents = propertylist::contentsOfFile(path, propertylist::maximumBytes);
  if (contents.bytes) return *std::move(contents.bytes);
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) {
    throw Failure("cannot read " + path + ": " + std::generic_category().message(errno));
  }
  if (!S_ISREG(status.st_mode)) throw Failure(path + " is not a regular file");
  throw Failure("cannot read " + path + ", or it has more than 16 MiB");
}

PropertyList parsedFrom(const std::string& bytes, const std::string& path, FileKind kind) {
  auto list = bytes.empty() ? std::nullopt : parsePropertyList(bytes);
  const char* name = kind == FileKind::strings ? " is no strings file" : " is no property list";
  if (!list) throw Failure(path + name + ": " + faultOfDictionaryFile(path).value_or("it changes"));
  if (kind == FileKind::strings && list->dictionary() == nullptr) throw Failure(path + name);
  return *std::move(list);
}

Exit readList(const Commands& commands, const ListArguments& arguments, FileKind kind,
              Output& output) {
  const PropertyList list = parsedFrom(bytesOf(arguments.file), arguments.file, kind);
  const PropertyList* value = &list;
  if (arguments.key) {
    const auto* dictionary = list.dictionary();
    if (dictionary == nullptr) throw Failure(arguments.file + " has no keys: it is no dictionary");
    value = dictionary->find(*arguments.key);
    if (value == nullptr) {
      throw Failure(arguments.file + " has no key \"" + *arguments.key + '"');
    }
  }
  if (commands.wantsJSON()) {
    output.json(jsonOf(*value));
  } else {
    printValue(*value, output);
  }
  return Exit::yes;
}

// The forms of a file that can be written, as they are found in one.
enum class Form { xml, text, textInUTF16 };

bool beginsWithMark(std::string_view bytes) {
  return bytes.starts_with("\xFF\xFE") || bytes.starts_with("\xFE\xFF");
}

Form formOf(const std::string& bytes, const std::string& path) {
  if (bytes.starts_with("bplist")) {
    throw Failure(path + " has the binary form, which is not written; convert it first");
  }
  if (bytes.find('\0') != std::string::npos && !beginsWithMark(bytes)) {
    throw Failure(path + " is UTF-16 without a mark at its beginning, which is not written");
  }
  if (propertylist::looksLikeXML(*propertylist::textOf(bytes))) return Form::xml;
  return beginsWithMark(bytes) ? Form::textInUTF16 : Form::text;
}

bool hasComments(Form form, std::string_view text) {
  if (form == Form::xml) return text.find("<!--") != std::string_view::npos;
  char quote = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char character = text[i];
    if (quote != 0) {
      if (character == '\\') {
        ++i;
      } else if (character == quote) {
        quote = 0;
      }
    } else if (character == '"' || character == '\'') {
      quote = character;
    } else if (text.substr(i, 2) == "//" || text.substr(i, 2) == "/*") {
      return true;
    }
  }
  return false;
}

std::string contentsIn(Form form, const PropertyList& list) {
  if (form != Form::xml && list.dictionary() == nullptr) {
    throw Failure("only a dictionary has the text form");
  }
  const auto text = form == Form::xml ? xmlPropertyList(list) : stringsFileText(*list.dictionary());
  if (!text) {
    throw Failure(form == Form::xml ? "XML cannot hold it: a text has a control character, or a "
                                      "number or date is out of range"
                                    : "the text form cannot hold it: a number or date is out of "
                                      "range");
  }
  return form == Form::textInUTF16 ? utf16WithMark(*text) : *text;
}

constexpr mode_t modeBits = 07777;

// Returns the mode of a new file.
mode_t usualMode() {
  constexpr mode_t asked = 0666;
  const mode_t mask = ::umask(0);
  ::umask(mask);
  return static_cast<mode_t>(asked & ~mask);
}

// Gives a file that this process has just made the mode and, where the user may, the owner of an
// older one. Neither is possible on every file system, and the contents are in place.
void giveOwnerAndMode(const std::string& path, const struct stat& wanted) {
  // By a descriptor: another user of the directory may put a link in the place of the file.
  const Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW));
  struct stat made {};
  if (!file || ::fstat(file.get(), &made) != 0 || made.st_uid != ::geteuid() ||
      made.st_nlink != 1 || !S_ISREG(made.st_mode)) {
    return;
  }
  [[maybe_unused]] const int owned = ::fchown(file.get(), wanted.st_uid, wanted.st_gid);
  [[maybe_unused]] const int opened =
      ::fchmod(file.get(), static_cast<mode_t>(wanted.st_mode & modeBits));
}

// Replaces a file at once, and keeps the mode and, as far as it may, the owner of an older one. A
// link stays a link.
void replaceContents(const std::string& path, const std::string& contents) {
  std::error_code error;
  const auto place = std::filesystem::weakly_canonical(path, error);
  const std::string target = error ? path : place.string();
  struct stat before {};
  const bool isThere = ::stat(target.c_str(), &before) == 0;
  if (isThere && !S_ISREG(before.st_mode)) throw Failure(path + " is not a regular file");
  if (isThere && ::access(target.c_str(), W_OK) != 0) {
    throw Failure("cannot write " + path + ": " + std::generic_category().message(errno));
  }
  errno = 0;
  if (!replaceFile(target, contents)) {
    const std::string reason = errno != 0 ? ": " + std::generic_category().message(errno) : "";
    throw Failure("cannot write " + path + reason);
  }
  struct stat wanted = before;
  if (!isThere) {
    wanted.st_uid = ::geteuid();
    wanted.st_gid = ::getegid();
    wanted.st_mode = usualMode();
  }
  giveOwnerAndMode(target, wanted);
}

Exit writeList(const ListArguments& arguments, FileKind kind) {
  constexpr std::chrono::seconds lockPatience(2);
  auto value = valueFrom(arguments.value, arguments.type);
  const auto lock = FileLock::acquire(arguments.file, lockPatience);
  if (lock.isTaken()) throw Failure(arguments.file + " is locked by another program");
  const std::string bytes = bytesOf(arguments.file);
  PropertyList list = parsedFrom(bytes, arguments.file, kind);
  if (list.dictionary() == nullptr) {
    throw Failure(arguments.file + " has no keys: it is no dictionary");
  }
  const Form form = formOf(bytes, arguments.file);
  if (!arguments.dropsComments && hasComments(form, *propertylist::textOf(bytes))) {
    throw Failure(arguments.file + " has comments, which would be lost; see --drop-comments");
  }
  auto dictionary = std::get<Dictionary>(std::move(list).value());
  const PropertyList* before = dictionary.find(*arguments.key);
  if (before != nullptr && *before == value) return Exit::yes;
  dictionary.set(*arguments.key, std::move(value));
  replaceContents(arguments.file, contentsIn(form, PropertyList(std::move(dictionary))));
  return Exit::yes;
}

Exit convertList(const ListArguments& arguments, FileKind kind, Output& output) {
  const PropertyList list = parsedFrom(bytesOf(arguments.file), arguments.file, kind);
  const std::string contents = contentsIn(arguments.form == "xml" ? Form::xml : Form::text, list);
  if (arguments.outputFile.empty()) {
    output.outside(contents);
  } else {
    replaceContents(arguments.outputFile, contents);
  }
  return Exit::yes;
}

void addKind(Commands& commands, FileKind kind) {
  const bool isList = kind == FileKind::list;
  const std::string file = isList ? "a property list" : "a strings file";
  CLI::App& group = commands.addGroup(
      isList ? "plist" : "strings",
      isList ? "Read, write and convert property lists" : "Do the same with strings files");
  const auto arguments = std::make_shared<ListArguments>();

  CLI::App& reading = commands.add(group, "read", "Print " + file + ", or the value of a key",
                                   [&commands, arguments, kind](Output& output) {
                                     return readList(commands, *arguments, kind, output);
                                   });
  reading.add_option("FILE", arguments->file, "XML, binary or text")->required()->type_name("");
  reading.add_option("KEY", arguments->key, "A key of the dictionary")->type_name("");
  commands.offerJSON(reading);

  CLI::App& writing =
      commands.add(group, "write", "Set a key of " + file,
                   [arguments, kind](Output&) { return writeList(*arguments, kind); });
  writing.add_option("FILE", arguments->file, "XML or text; it keeps its form")
      ->required()
      ->type_name("");
  writing.add_option("KEY", arguments->key, "A key of the dictionary")->required()->type_name("");
  writing.add_option("VALUE", arguments->value, "The new value")->required()->type_name("");
  if (isList) offerType(writing, arguments->type);
  writing.add_flag("--drop-comments", arguments->dropsComments,
                   "Write also if comments of the file are lost");

  CLI::App& converting = commands.add(
      group, "convert", "Print " + file + " in another form",
      [arguments, kind](Output& output) { return convertList(*arguments, kind, output); });
  converting.add_option("FILE", arguments->file, "XML, binary or text")->required()->type_name("");
  converting.add_option("--to", arguments->form, "xml, or text: that of strings files")
      ->required()
      ->check(CLI::IsMember({"xml", "text"}).description(""))
      ->type_name("FORM");
  converting.add_option("-o,--output", arguments->outputFile, "Replace this file instead")
      ->type_name("FILE");
}

}  // namespace

void addPropertyLists(Commands& commands) {
  addKind(commands, FileKind::list);
  addKind(commands, FileKind::strings);
}

}  // namespace qbdkr::tool
