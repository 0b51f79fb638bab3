// Tests the two switches in the host's own bundle: their files, when these are written, and in
// which form. Every body runs from a bundle of its own.

#include <gtest/gtest.h>
#include <linux/capability.h>
#include <sys/inotify.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include <ClientComm/Bundle.h>
#include <ClientComm/QBHPHelperControl.h>
#include <QBDKRProductClient/QBHPHelper.h>
#include <QBDKRProductClient/QBHPHelperCommunicate.h>

#include "CommunicatorTest.h"
#include "Platform/Base/Descriptor.h"
#include "Platform/Files/FileLock.h"
#include "Platform/Files/Files.h"
#include "Platform/PropertyLists/PropertyListReader.h"
#include "Platform/PropertyLists/PropertyListWriter.h"
#include "Platform/Text/Text.h"
#include "support/CapturedLog.h"
#include "support/RecordingTransport.h"
#include "support/RefusedCall.h"
#include "support/WatchedThread.h"

namespace qbdkr::test {
namespace {

namespace fs = std::filesystem;
using Communicator = QBHPHelperCommunicate;
using Dictionary = PropertyList::Dictionary;
using Lines = std::vector<std::string>;
using Strings = std::map<std::string, std::string>;
using Writer = void (Communicator::*)(bool);

struct Switch {
  const char* key;
  Writer toPropertyList;
  Writer toStrings;
  Writer toBoth;
  void (Communicator::*sync)();
  bool valueWhenMissing;
};

const Switch tips{"TipsEnable",
                  &Communicator::saveTipsEnableToPlistFile,
                  &Communicator::saveTipsEnableTostringsFile,
                  &Communicator::setTipsEnable,
                  &Communicator::saveTipsEnable,
                  true};
const Switch advertising{"EnableAD",
                         &Communicator::saveEnableADToPlistFile,
                         &Communicator::saveEnableADToStringsFile,
                         &Communicator::setEnableAD,
                         &Communicator::saveEnableAD,
                         false};

// Holds the properties of a file that a write could change. Tests make the file old first: then any
// write changes its time.
struct FileState {
  ino_t inode;
  time_t seconds;
  mode_t mode;
  nlink_t links;
  std::string bytes;
  bool operator==(const FileState&) const = default;
};

FileState stateOf(const fs::path& path) {
  struct stat status {};
  EXPECT_EQ(stat(path.c_str(), &status), 0) << path;
  return {status.st_ino, status.st_mtim.tv_sec, status.st_mode, status.st_nlink, readFile(path)};
}

FileState aged(const fs::path& path) {
  fs::last_write_time(path, fs::file_time_type::clock::now() - std::chrono::hours(1000));
  return stateOf(path);
}

Dictionary dictionaryIn(const fs::path& path) {
  return readDictionaryFile(path).value_or(Dictionary());
}

// Returns the bytes of a strings file with this text after a write.
std::string writtenStrings(std::string_view text) {
  std::string bytes = "\xFF\xFE";
  for (const char16_t unit : utf16FromUTF8(text)) {
    bytes += static_cast<char>(unit & 0xFFU);
    bytes += static_cast<char>(unit >> 8U);
  }
  return bytes;
}

// Takes the capabilities with which root reads and writes any file from the calling thread.
class ObeyedPermissions {
 public:
  ObeyedPermissions() {
    EXPECT_EQ(syscall(SYS_capget, &header_, before_.data()), 0);
    auto after = before_;
    after[0].effective &= ~(1U << CAP_DAC_OVERRIDE | 1U << CAP_DAC_READ_SEARCH);
    EXPECT_EQ(syscall(SYS_capset, &header_, after.data()), 0);
  }
  ObeyedPermissions(const ObeyedPermissions&) = delete;
  ObeyedPermissions& operator=(const ObeyedPermissions&) = delete;
  ~ObeyedPermissions() { EXPECT_EQ(syscall(SYS_capset, &header_, before_.data()), 0); }

 private:
  __user_cap_header_struct header_{_LINUX_CAPABILITY_VERSION_3, 0};
  std::array<__user_cap_data_struct, _LINUX_CAPABILITY_U32S_3> before_{};
};

// Limits the size of the files that this process writes.
class SmallFilesOnly {
 public:
  explicit SmallFilesOnly(rlim_t size) {
    getrlimit(RLIMIT_FSIZE, &before_);
    const rlimit limit{size, before_.rlim_max};
    EXPECT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
  }
  SmallFilesOnly(const SmallFilesOnly&) = delete;
  SmallFilesOnly& operator=(const SmallFilesOnly&) = delete;
  ~SmallFilesOnly() { setrlimit(RLIMIT_FSIZE, &before_); }

 private:
  rlimit before_{};
};

// Gets the order in which files are written from the kernel.
class WriteOrder {
 public:
  explicit WriteOrder(const std::vector<fs::path>& files) {
    for (const fs::path& file : files) {
      const int watch = inotify_add_watch(descriptor_.get(), file.c_str(), IN_CLOSE_WRITE);
      EXPECT_GE(watch, 0) << file;
      files_[watch] = file;
    }
  }

  std::vector<fs::path> writtenSoFar() {
    std::vector<fs::path> written;
    alignas(inotify_event) std::array<char, 4096> events{};
    ssize_t size = 0;
    while ((size = read(descriptor_.get(), events.data(), events.size())) > 0) {
      // Events of files that are watched themselves have no name.
      for (std::size_t at = 0; at < static_cast<std::size_t>(size); at += sizeof(inotify_event)) {
        written.push_back(files_.at(reinterpret_cast<inotify_event*>(&events.at(at))->wd));
      }
    }
    return written;
  }

 private:
  const Descriptor descriptor_{inotify_init1(IN_CLOEXEC | IN_NONBLOCK)};
  std::map<int, fs::path> files_;
};

Dictionary information(std::initializer_list<Dictionary::Entry> more = {}) {
  Dictionary info = hostInformation();
  info.set("CFBundleDevelopmentRegion", "en");
  for (const auto& [key, value] : more) info.set(key, value);
  return info;
}

const Strings english{{"en", "/* a comment */ \"Name\" = \"Host\";"}};

class SwitchFiles : public CommunicatorTest {
 protected:
  static fs::path propertyList(const Host& host) { return host.bundle / "Contents/Info.plist"; }
  static fs::path folder(const Host& host, const std::string& language = "en") {
    return host.resources() / (language + ".lproj");
  }
  static fs::path strings(const Host& host, const std::string& language = "en") {
    return folder(host, language) / "InfoPlist.strings";
  }

  // Makes both files old, so that any write shows, and remembers their state.
  struct BothFiles {
    explicit BothFiles(const Host& ofHost)
        : host(ofHost), list(aged(propertyList(host))), text(aged(strings(host))) {}
    void expectUntouched() const {
      EXPECT_EQ(stateOf(propertyList(host)), list);
      EXPECT_EQ(stateOf(strings(host)), text);
    }
    void expectWritten() const {
      EXPECT_NE(stateOf(propertyList(host)), list);
      EXPECT_NE(stateOf(strings(host)), text);
    }
    const Host& host;
    FileState list;
    FileState text;
  };

  void write(Writer writer, bool value) { (communicator().*writer)(value); }
};

// --- Search

TEST_F(SwitchFiles, SearchFindsTheFilesOfABundle) {
  withHost(
      information(),
      [this](const Host& host) {
        const std::string bundle = host.bundle;
        EXPECT_EQ(communicator().searchPlistFilePath(bundle), propertyList(host));
        CapturedLog log;
        EXPECT_EQ(communicator().searchCurrentStringsFilePath(bundle), strings(host));
        EXPECT_EQ(log.lines(), Lines{"(en)"});
      },
      english);
}

TEST_F(SwitchFiles, SearchNamesAStringsFileThatIsNotThere) {
  withHost(information(), [this](const Host& host) {
    fs::create_directories(folder(host));
    EXPECT_EQ(communicator().searchCurrentStringsFilePath(host.bundle.string()), strings(host));
    EXPECT_FALSE(fs::exists(strings(host)));
  });
}

TEST_F(SwitchFiles, SearchFindsNothingWhereThereIsNothing) {
  withHost(
      information(),
      [this](const Host& host) {
        fs::create_directories(host.home / "Empty.app/Contents");
        for (const char* name : {"Empty.app", "none"}) {
          const std::string path = host.home / name;
          EXPECT_EQ(communicator().searchPlistFilePath(path), std::nullopt);
          CapturedLog log;
          EXPECT_EQ(communicator().searchCurrentStringsFilePath(path), std::nullopt);
          EXPECT_EQ(log.lines(), Lines{"(null)"});
        }
        EXPECT_EQ(communicator().searchPlistFilePath(std::nullopt), std::nullopt);
        EXPECT_EQ(communicator().searchCurrentStringsFilePath(std::nullopt), std::nullopt);
      },
      english);
}

TEST_F(SwitchFiles, SearchInAnotherBundleUsesTheLanguageOfTheProcess) {
  withHost(
      information(),
      [this](const Host& host) {
        const fs::path other = host.home / "Other.app";
        writeFile(other / "Contents/Other.plist", "");
        writeFile(other / "Contents/Resources/de.lproj/a.strings", "\"TipsEnable\" = \"1\";");
        EXPECT_EQ(communicator().searchPlistFilePath(other.string()),
                  other / "Contents/Other.plist");
        EXPECT_EQ(communicator().searchCurrentStringsFilePath(other.string()), std::nullopt);
        writeFile(other / "Contents/Resources/en.lproj/b.strings", "\"TipsEnable\" = \"1\";");
        EXPECT_EQ(communicator().searchCurrentStringsFilePath(other.string()),
                  other / "Contents/Resources/en.lproj/b.strings");
      },
      english);
}

TEST_F(SwitchFiles, SearchTakesTheFirstOfSeveralInTheOrderOfTheFolder) {
  withHost(
      information(),
      [this](const Host& host) {
        const auto first = [](const fs::path& directory, const std::string& extension) {
          for (const auto& entry : fs::directory_iterator(directory)) {
            if (entry.path().extension() == extension) return entry.path();
          }
          return fs::path();
        };
        for (const char* name : {"A", "Z", "m", "0"}) {
          writeFile(host.bundle / "Contents" / (std::string(name) + ".plist"), "");
          writeFile(folder(host) / (std::string(name) + ".strings"), "\"TipsEnable\" = \"1\";");
        }
        fs::remove(strings(host));
        const std::string bundle = host.bundle;
        EXPECT_EQ(communicator().searchPlistFilePath(bundle),
                  first(host.bundle / "Contents", ".plist"));
        EXPECT_EQ(communicator().searchCurrentStringsFilePath(bundle),
                  first(folder(host), ".strings"));
      },
      english);
}

TEST_F(SwitchFiles, FileThatCarriesTheTipsSwitchGetsBothSwitches) {
  withHost(
      information(),
      [this](const Host& host) {
        const fs::path other = folder(host) / "Other.strings";
        writeFile(other, "\"TipsEnable\" = \"0\";");
        const FileState before = aged(strings(host));
        write(&Communicator::setTipsEnable, true);
        write(&Communicator::setEnableAD, true);
        EXPECT_EQ(dictionaryIn(other), (Dictionary{{"TipsEnable", "1"}, {"EnableAD", "1"}}));
        EXPECT_EQ(stateOf(strings(host)), before);
      },
      english);
}

TEST_F(SwitchFiles, FilesWithoutTheTipsSwitchOrOfAnotherKindAreNotChosen) {
  withHost(
      information(),
      [this](const Host& host) {
        writeFile(folder(host) / "Advertising.strings", "\"EnableAD\" = \"0\";");
        writeFile(folder(host) / "Broken.strings", "\"TipsEnable\" = ");
        writeFile(folder(host) / "Tips.txt", "\"TipsEnable\" = \"0\";");
        fs::create_directories(folder(host) / "Folder.strings");
        write(&Communicator::saveEnableADToStringsFile, true);
        EXPECT_EQ(dictionaryIn(strings(host)), (Dictionary{{"Name", "Host"}, {"EnableAD", "1"}}));
        EXPECT_EQ(readFile(folder(host) / "Advertising.strings"), "\"EnableAD\" = \"0\";");
        EXPECT_EQ(readFile(folder(host) / "Broken.strings"), "\"TipsEnable\" = ");
        EXPECT_EQ(readFile(folder(host) / "Tips.txt"), "\"TipsEnable\" = \"0\";");
      },
      english);
}

TEST_F(SwitchFiles, OnlyTheLanguageOfTheProcessIsWritten) {
  withHost(information(),
           [this](const Host& host) {
             setenv("LANG", "de_DE.UTF-8", 1);
             const FileState before = aged(strings(host, "en"));
             write(&Communicator::setTipsEnable, true);
             EXPECT_EQ(stateOf(strings(host, "en")), before);
             EXPECT_EQ(dictionaryIn(strings(host, "de")),
                       (Dictionary{{"Name", "Wirt"}, {"TipsEnable", "1"}}));
           },
           {{"en", "\"Name\" = \"Host\";"}, {"de", "\"Name\" = \"Wirt\";"}});
}

TEST_F(SwitchFiles, WithoutAFolderForTheLanguageOnlyThePropertyListIsWritten) {
  for (const Switch& row : {tips, advertising}) {
    withHost(information(), [&](const Host& host) {
      communicator();
      {
        CapturedLog log;
        write(row.toStrings, true);
        EXPECT_EQ(log.lines(), Lines{"(null)"});
      }
      fs::create_directories(host.resources());
      {
        CapturedLog log;
        write(row.toBoth, true);
        EXPECT_EQ(log.lines(), Lines{"()"});
      }
      EXPECT_TRUE(fs::is_empty(host.resources()));
      EXPECT_EQ(dictionaryIn(propertyList(host)), information({{row.key, true}}));
    });
  }
}

// --- Writes

TEST_F(SwitchFiles, EachWriterWritesItsKeyIntoItsFileOnly) {
  for (const Switch& row : {tips, advertising}) {
    for (const bool value : {true, false}) {
      withHost(
          information(),
          [&](const Host& host) {
            communicator();
            const BothFiles files(host);
            CapturedLog log;
            write(row.toStrings, value);
            EXPECT_EQ(log.lines(), Lines{"(en)"});
            EXPECT_EQ(stateOf(propertyList(host)), files.list);
            EXPECT_EQ(dictionaryIn(strings(host)),
                      (Dictionary{{"Name", "Host"}, {row.key, value ? "1" : "0"}}));
            writeFile(strings(host), files.text.bytes);
            const FileState again = aged(strings(host));
            write(row.toPropertyList, value);
            EXPECT_EQ(log.lines().size(), 1U);
            EXPECT_EQ(stateOf(strings(host)), again);
            EXPECT_EQ(dictionaryIn(propertyList(host)), information({{row.key, value}}));
          },
          english);
    }
  }
}

TEST_F(SwitchFiles, SettersWriteBothFilesAndLogOneSearch) {
  for (const Switch& row : {tips, advertising}) {
    withHost(
        information(),
        [&](const Host& host) {
          communicator();
          for (const bool value : {true, false, true}) {
            CapturedLog log;
            write(row.toBoth, value);
            EXPECT_EQ(log.lines(), Lines{"(en)"});
            EXPECT_EQ(dictionaryIn(propertyList(host)), information({{row.key, value}}));
            EXPECT_EQ(dictionaryIn(strings(host)),
                      (Dictionary{{"Name", "Host"}, {row.key, value ? "1" : "0"}}));
          }
        },
        english);
  }
}

TEST_F(SwitchFiles, FacadeSetsTheTipsSwitchInBothFiles) {
  withHost(
      information(),
      [this](const Host& host) {
        for (const bool value : {false, true, false}) {
          facade().setTipsEnable(value);
          EXPECT_EQ(dictionaryIn(propertyList(host)), information({{"TipsEnable", value}}));
          EXPECT_EQ(dictionaryIn(strings(host)),
                    (Dictionary{{"Name", "Host"}, {"TipsEnable", value ? "1" : "0"}}));
        }
      },
      english);
}

TEST_F(SwitchFiles, SettersWriteThePropertyListBeforeTheStringsFile) {
  for (const Switch& row : {tips, advertising}) {
    withHost(
        information(),
        [&](const Host& host) {
          communicator();
          const std::vector<fs::path> files{propertyList(host), strings(host)};
          WriteOrder order(files);
          write(row.toBoth, true);
          EXPECT_EQ(order.writtenSoFar(), files);
        },
        english);
  }
}

TEST_F(SwitchFiles, WrittenStringsFileIsUTF16WithOnePairALine) {
  withHost(information(),
           [this](const Host& host) {
             write(&Communicator::saveTipsEnableTostringsFile, true);
             EXPECT_EQ(readFile(strings(host)),
                       writtenStrings("\"Name\" = \"Gr\u00FC\u00DFe \U0001F600\";\n"
                                      "\"two words\" = \"say \\\"hi\\\"\\n\";\n"
                                      "\"TipsEnable\" = \"1\";\n"));
             write(&Communicator::saveEnableADToStringsFile, false);
             write(&Communicator::saveTipsEnableTostringsFile, false);
             EXPECT_EQ(readFile(strings(host)),
                       writtenStrings("\"Name\" = \"Gr\u00FC\u00DFe \U0001F600\";\n"
                                      "\"two words\" = \"say \\\"hi\\\"\\n\";\n"
                                      "\"TipsEnable\" = \"0\";\n\"EnableAD\" = \"0\";\n"));
           },
           {{"en",
             "// a comment\nName = \"Gr\u00FC\u00DFe \U0001F600\"; /* another */\n\n"
             "\"two words\"=\"say \\\"hi\\\"\\n\";"}});
}

TEST_F(SwitchFiles, StringsFileOfAnyFormBecomesThatOfOne) {
  const Dictionary pairs{{"Name", "Host"}};
  for (const std::string& before :
       {writtenStrings("\"Name\" = \"Host\";"), xmlPropertyList(pairs).value(),
        std::string("\xEF\xBB\xBFName = Host;")}) {
    withHost(information(),
             [this](const Host& host) {
               write(&Communicator::saveTipsEnableTostringsFile, true);
               EXPECT_EQ(readFile(strings(host)),
                         writtenStrings("\"Name\" = \"Host\";\n\"TipsEnable\" = \"1\";\n"));
             },
             {{"en", before}});
  }
}

TEST_F(SwitchFiles, PropertyListOfAnyFormBecomesXML) {
  using namespace std::string_literals;
  // {K = v} in the binary form: three objects, their offsets, the trailer.
  const std::string binary = "bplist00\xD1\x01\x02\x51K\x51v\x08\x0B\x0D"s + std::string(6, '\0') +
                             "\x01\x01"s + std::string(7, '\0') + "\x03"s + std::string(15, '\0') +
                             "\x0F"s;
  const std::string comment = "<!--" + std::string(4096, 'x') + "-->";
  for (const std::string& before :
       {binary, "{ K = v; }"s,
        "<plist>" + comment + "<dict><key>K</key><string>v</string></dict></plist>"}) {
    withHost(information(), [&](const Host& host) {
      communicator();
      writeFile(propertyList(host), before);
      ASSERT_EQ(dictionaryIn(propertyList(host)), (Dictionary{{"K", "v"}}));
      write(&Communicator::saveTipsEnableToPlistFile, true);
      // No rest of a longer file follows.
      EXPECT_EQ(readFile(propertyList(host)),
                xmlPropertyList(Dictionary{{"K", "v"}, {"TipsEnable", true}}));
    });
  }
}

TEST_F(SwitchFiles, OtherValuesOfThePropertyListAreKept) {
  using namespace std::string_literals;
  const Dictionary info = information({{"Number", -12},
                                       {"Real", 0.5},
                                       {"Date", PropertyList::Date{1}},
                                       {"Data", PropertyList::Data{"\0\xFF"s}},
                                       {"List", PropertyList::Array{"a", false}},
                                       {"Map", Dictionary{{"<&>", "\U0001F600"}}},
                                       {"EnableAD", true}});
  withHost(info, [&](const Host& host) {
    write(&Communicator::setEnableAD, false);
    Dictionary expected = info;
    expected.set("EnableAD", false);
    EXPECT_EQ(dictionaryIn(propertyList(host)), expected);
  });
}

TEST_F(SwitchFiles, WrittenFilesStayTheSameFiles) {
  withHost(
      information(),
      [this](const Host& host) {
        for (const fs::path& file : {propertyList(host), strings(host)}) {
          fs::permissions(file, fs::perms(0640));
          fs::create_hard_link(file, file.string() + "-link");
        }
        const BothFiles files(host);
        write(&Communicator::setTipsEnable, true);
        for (const auto& [file, before] :
             {std::pair(propertyList(host), files.list), std::pair(strings(host), files.text)}) {
          const FileState after = stateOf(file);
          EXPECT_EQ(after.inode, before.inode);
          EXPECT_EQ(after.mode, before.mode);
          EXPECT_EQ(after.links, 2U);
          EXPECT_GT(after.seconds, before.seconds);
          EXPECT_NE(after.bytes, before.bytes);
          EXPECT_EQ(stateOf(file.string() + "-link"), after);
        }
      },
      english);
}

TEST_F(SwitchFiles, SymbolicLinkIsFollowedAndKept) {
  withHost(
      information(),
      [this](const Host& host) {
        const fs::path elsewhere = host.home / "elsewhere";
        fs::rename(strings(host), elsewhere);
        fs::create_symlink(elsewhere, strings(host));
        write(&Communicator::setTipsEnable, true);
        EXPECT_TRUE(fs::is_symlink(strings(host)));
        EXPECT_EQ(dictionaryIn(elsewhere), (Dictionary{{"Name", "Host"}, {"TipsEnable", "1"}}));
      },
      english);
}

TEST_F(SwitchFiles, FileThatAnotherWriterHoldsForAMomentIsReadWhenHeIsDone) {
  withHost(information(), [this](const Host& host) {
    communicator();
    bool written = false;
    // On a busy machine the waiting writer may give up first.
    for (int attempt = 0; attempt < 100 && !written; ++attempt) {
      writeBundle(host.bundle, information());
      auto lock = FileLock::acquire(propertyList(host), std::chrono::milliseconds(0));
      ASSERT_TRUE(lock.isHeld());
      WatchedThread writer([this] { write(&Communicator::saveTipsEnableToPlistFile, true); });
      EXPECT_TRUE(writer.waits());
      writeBundle(host.bundle, information({{"Other", "kept"}}));
      lock.unlock();
      writer.join();
      const Dictionary after = dictionaryIn(propertyList(host));
      written = after == information({{"Other", "kept"}, {"TipsEnable", true}});
      EXPECT_TRUE(written || after == information({{"Other", "kept"}}));
    }
    EXPECT_TRUE(written);
  });
}

TEST_F(SwitchFiles, SetterDoesNotWaitLongForAnotherWriterAndLeavesItsFile) {
  static constexpr std::chrono::seconds bound(2);  // ten times the longest wait
  for (const Switch& row : {tips, advertising}) {
    withHost(
        information(),
        [&](const Host& host) {
          communicator();
          const BothFiles files(host);
          const auto list = FileLock::acquire(propertyList(host), std::chrono::milliseconds(0));
          auto text = FileLock::acquire(strings(host), std::chrono::milliseconds(0));
          ASSERT_TRUE(list.isHeld() && text.isHeld());
          const auto start = std::chrono::steady_clock::now();
          write(row.toBoth, true);
          EXPECT_LT(std::chrono::steady_clock::now() - start, bound);
          files.expectUntouched();
          text.unlock();  // this file is now written
          write(row.toBoth, true);
          EXPECT_EQ(stateOf(propertyList(host)), files.list);
          EXPECT_EQ(dictionaryIn(strings(host)), (Dictionary{{"Name", "Host"}, {row.key, "1"}}));
        },
        english);
  }
}

// The new contents stay, although the file could not be truncated.
TEST_F(SwitchFiles, FilesCanBeReadBeforeTheyAreCut) {
  const std::string comment = "/* " + std::string(2000, 'c') + " */";
  for (const std::string& odd : {comment, comment + ' '}) {
    // In a process of its own: a refused call stays refused.
    inHost(
        information(),
        [&](const Host& host) {
          auto& communicator = QBHPHelperCommunicate::share();
          const Dictionary before = information({{"EnableAD", false}});
          writeFile(propertyList(host),
                    xmlPropertyList(before).value() + "<!-- " + std::string(500, 'c') + " -->");
          failCall(SYS_ftruncate, EIO);
          communicator.setEnableAD(true);
          EXPECT_EQ(dictionaryIn(propertyList(host)), information({{"EnableAD", true}}));
          EXPECT_EQ(dictionaryIn(strings(host)), (Dictionary{{"Name", "Host"}, {"EnableAD", "1"}}));
          EXPECT_GE(fs::file_size(strings(host)), odd.size());
        },
        {{"en", odd + "\"Name\" = \"Host\";"}});
  }
}

TEST_F(SwitchFiles, WithoutAPropertyListTheStringsFileIsWrittenAllTheSame) {
  for (const Switch& row : {tips, advertising}) {
    withHost(
        information(),
        [&](const Host& host) {
          communicator();
          fs::remove(propertyList(host));
          write(row.toBoth, true);
          EXPECT_EQ(dictionaryIn(strings(host)), (Dictionary{{"Name", "Host"}, {row.key, "1"}}));
          EXPECT_FALSE(fs::exists(propertyList(host)));
        },
        english);
  }
}

// Simulates a writer in another process that was killed.
TEST_F(SwitchFiles, FileOfAWriterThatWasKilledIsTakenBackFirst) {
  withHost(information(), [this](const Host& host) {
    communicator();
    const std::string before = xmlPropertyList(information({{"Other", "kept"}})).value();
    const std::string after(before.size(), ' ');
    writeFile(host.bundle / "Contents/.Info.plist.qbhp-rewrite",
              "qbhp-rewrite " + std::to_string(before.size()) + " 1\n" + before + after);
    writeFile(propertyList(host), after.substr(0, 100) + before.substr(100));
    write(&Communicator::saveTipsEnableToPlistFile, true);
    EXPECT_EQ(dictionaryIn(propertyList(host)),
              information({{"Other", "kept"}, {"TipsEnable", true}}));
    EXPECT_FALSE(fs::exists(host.bundle / "Contents/.Info.plist.qbhp-rewrite"));
  });
}

// --- Files that stay unchanged

TEST_F(SwitchFiles, UnchangedValueTouchesNeitherFile) {
  for (const Switch& row : {tips, advertising}) {
    for (const bool value : {true, false}) {
      withHost(information({{row.key, value}}),
               [&](const Host& host) {
                 communicator();
                 const BothFiles files(host);
                 write(row.toBoth, value);
                 write(row.toPropertyList, value);
                 write(row.toStrings, value);
                 files.expectUntouched();
                 write(row.toBoth, !value);
                 files.expectWritten();
               },
               {{"en", "/* kept */ " + std::string(row.key) + " = " + (value ? "1" : "0") + ";"}});
    }
  }
}

TEST_F(SwitchFiles, ValueOfAnotherKindCountsByItsBooleanReading) {
  struct Row {
    PropertyList value;
    bool reading;
  };
  const std::vector<Row> rows{{"YES", true}, {"yes", true}, {"True", true},       {" +7", true},
                              {"1x", true},  {"NO", false}, {"", false},          {"on", false},
                              {"-", false},  {1, true},     {-1, true},           {0, false},
                              {0.5, true},   {0.0, false},  {Dictionary(), false}};
  withHost(information(), [&](const Host& host) {
    communicator();
    for (std::size_t i = 0; i < rows.size(); ++i) {
      SCOPED_TRACE(i);
      writeBundle(host.bundle, information({{"TipsEnable", rows[i].value}}));
      const FileState before = aged(propertyList(host));
      write(&Communicator::saveTipsEnableToPlistFile, rows[i].reading);
      EXPECT_EQ(stateOf(propertyList(host)), before);
      write(&Communicator::saveTipsEnableToPlistFile, !rows[i].reading);
      EXPECT_EQ(dictionaryIn(propertyList(host)), information({{"TipsEnable", !rows[i].reading}}));
    }
  });
}

TEST_F(SwitchFiles, MissingKeyIsAddedForFalseAsWell) {
  withHost(
      information(),
      [this](const Host& host) {
        write(&Communicator::setEnableAD, false);
        EXPECT_EQ(dictionaryIn(propertyList(host)), information({{"EnableAD", false}}));
        EXPECT_EQ(dictionaryIn(strings(host)), (Dictionary{{"Name", "Host"}, {"EnableAD", "0"}}));
      },
      english);
}

TEST_F(SwitchFiles, FilesThatAreMissingAreNotMade) {
  withHost(
      information(),
      [this](const Host& host) {
        communicator();
        fs::remove(propertyList(host));
        fs::remove(strings(host));
        for (const Switch& row : {tips, advertising}) {
          write(row.toBoth, true);
          (communicator().*row.sync)();
        }
        EXPECT_FALSE(fs::exists(propertyList(host)));
        EXPECT_TRUE(fs::is_empty(folder(host)));
      },
      english);
}

TEST_F(SwitchFiles, FilesThatCannotBeReadAsADictionaryAreLeftAlone) {
  for (const char* contents : {"", "\"Name\" = ", "<plist><array/></plist>", "bplist00"}) {
    withHost(
        information(),
        [&](const Host& host) {
          communicator();
          for (const fs::path& file : {propertyList(host), strings(host)}) {
            writeFile(file, contents);
          }
          const BothFiles files(host);
          write(&Communicator::setTipsEnable, true);
          files.expectUntouched();
        },
        english);
  }
}

TEST_F(SwitchFiles, FilesThatMayNotBeWrittenAreLeftAlone) {
  withHost(
      information(),
      [this](const Host& host) {
        communicator();
        for (const fs::path& file : {propertyList(host), strings(host)}) {
          fs::permissions(file, fs::perms(0444));
        }
        const BothFiles files(host);
        const ObeyedPermissions obeyed;
        write(&Communicator::setTipsEnable, true);
        write(&Communicator::setEnableAD, true);
        communicator().saveTipsEnable();
        files.expectUntouched();
      },
      english);
}

TEST_F(SwitchFiles, FilesThatMayNotBeReadAreLeftAlone) {
  withHost(
      information(),
      [this](const Host& host) {
        communicator();
        const BothFiles files(host);
        for (const fs::path& file : {propertyList(host), strings(host)}) {
          fs::permissions(file, fs::perms(0200));
        }
        {
          const ObeyedPermissions obeyed;
          write(&Communicator::setTipsEnable, true);
        }
        for (const fs::path& file : {propertyList(host), strings(host)}) {
          fs::permissions(file, fs::perms(0600));
        }
        EXPECT_EQ(readFile(propertyList(host)), files.list.bytes);
        EXPECT_EQ(readFile(strings(host)), files.text.bytes);
      },
      english);
}

TEST_F(SwitchFiles, FoldersThatMayNotBeWrittenDoNotKeepTheirFilesFromIt) {
  withHost(
      information(),
      [this](const Host& host) {
        communicator();
        const std::vector<fs::path> folders{host.bundle / "Contents", folder(host)};
        for (const fs::path& path : folders) fs::permissions(path, fs::perms(0555));
        {
          const ObeyedPermissions obeyed;
          write(&Communicator::setTipsEnable, true);
        }
        for (const fs::path& path : folders) fs::permissions(path, fs::perms(0755));
        EXPECT_EQ(dictionaryIn(propertyList(host)), information({{"TipsEnable", true}}));
        EXPECT_EQ(dictionaryIn(strings(host)), (Dictionary{{"Name", "Host"}, {"TipsEnable", "1"}}));
      },
      english);
}

TEST_F(SwitchFiles, FolderThatMayNotBeListedHasItsUsualFileOnly) {
  withHost(
      information(),
      [this](const Host& host) {
        communicator();
        const fs::path other = folder(host) / "Other.strings";
        writeFile(other, "\"TipsEnable\" = \"0\";");
        fs::permissions(folder(host), fs::perms(0111));
        {
          const ObeyedPermissions obeyed;
          write(&Communicator::saveTipsEnableTostringsFile, true);
        }
        fs::permissions(folder(host), fs::perms(0755));
        EXPECT_EQ(readFile(other), "\"TipsEnable\" = \"0\";");
        EXPECT_EQ(dictionaryIn(strings(host)), (Dictionary{{"Name", "Host"}, {"TipsEnable", "1"}}));
      },
      english);
}

TEST_F(SwitchFiles, WithoutRoomToGrowTheOldContentsStay) {
  withHost(
      information(),
      [this](const Host& host) {
        communicator();
        const BothFiles files(host);
        {
          const CapturedLog log;  // the limit holds for a log file too
          const SmallFilesOnly limit(16);
          write(&Communicator::setTipsEnable, true);
        }
        files.expectUntouched();
        write(&Communicator::setTipsEnable, true);
        files.expectWritten();
      },
      english);
}

// --- A start

TEST_F(SwitchFiles, SyncAddsAMissingKeyWithItsDefaultToThePropertyListOnly) {
  withHost(
      information(),
      [this](const Host& host) {
        communicator();
        const FileState text = aged(strings(host));
        CapturedLog log;
        communicator().saveTipsEnable();
        EXPECT_EQ(dictionaryIn(propertyList(host)), information({{"TipsEnable", true}}));
        communicator().saveEnableAD();
        EXPECT_EQ(dictionaryIn(propertyList(host)),
                  information({{"TipsEnable", true}, {"EnableAD", false}}));
        EXPECT_EQ(stateOf(strings(host)), text);
        EXPECT_TRUE(log.lines().empty());
      },
      english);
}

TEST_F(SwitchFiles, SyncLeavesAFileThatSaysTheSameUntouched) {
  for (const Switch& row : {tips, advertising}) {
    for (const PropertyList& value :
         {PropertyList(true), PropertyList(false), PropertyList("YES"), PropertyList(0)}) {
      withHost(information({{row.key, value}}), [&](const Host& host) {
        communicator();
        const FileState before = aged(propertyList(host));
        (communicator().*row.sync)();
        EXPECT_EQ(stateOf(propertyList(host)), before);
      });
    }
  }
}

TEST_F(SwitchFiles, SyncTakesTheLocalizedValue) {
  for (const Switch& row : {tips, advertising}) {
    for (const bool localized : {true, false}) {
      withHost(information({{row.key, !localized}}),
               [&](const Host& host) {
                 communicator();
                 const FileState text = aged(strings(host));
                 (communicator().*row.sync)();
                 EXPECT_EQ(dictionaryIn(propertyList(host)), information({{row.key, localized}}));
                 EXPECT_EQ(stateOf(strings(host)), text);
               },
               {{"en", std::string(row.key) + " = " + (localized ? "YES" : "NO") + ";"}});
    }
  }
}

TEST_F(SwitchFiles, SyncAddsTheLocalizedValueOfAKeyThatThePropertyListLacks) {
  withHost(information(),
           [this](const Host& host) {
             communicator().saveTipsEnable();
             communicator().saveEnableAD();
             EXPECT_EQ(dictionaryIn(propertyList(host)),
                       information({{"TipsEnable", false}, {"EnableAD", true}}));
           },
           {{"en", "TipsEnable = 0; EnableAD = 1;"}});
}

TEST_F(SwitchFiles, SyncGoesByWhatTheProcessReadWhenItBegan) {
  withHost(information({{"TipsEnable", true}}), [this](const Host& host) {
    communicator();
    writeBundle(host.bundle, information({{"TipsEnable", false}}));
    communicator().saveTipsEnable();
    EXPECT_EQ(dictionaryIn(propertyList(host)), information({{"TipsEnable", true}}));
  });
}

// --- The helper control's copy

TEST_F(SwitchFiles, ControlCopiesWhatTheInformationDictionarySays) {
  struct Row {
    PropertyList stored;
    bool copied;
  };
  for (const Row& row :
       {Row{true, true}, Row{false, false}, Row{"YES", true}, Row{"0", false}, Row{3, true}}) {
    inHost(information({{"EnableAD", row.stored}}), [&](const Host& host) {
      EXPECT_TRUE(QBHPHelperControl::share().saveEnableADToPlistFile());
      EXPECT_EQ(dictionaryIn(propertyList(host)), information({{"EnableAD", row.copied}}));
    });
  }
}

TEST_F(SwitchFiles, ControlTakesTheLocalizedValueAndLeavesTheStringsFile) {
  inHost(information({{"EnableAD", true}}),
         [](const Host& host) {
           const FileState text = aged(strings(host));
           EXPECT_TRUE(QBHPHelperControl::share().saveEnableADToPlistFile());
           EXPECT_EQ(dictionaryIn(propertyList(host)), information({{"EnableAD", false}}));
           EXPECT_EQ(stateOf(strings(host)), text);
         },
         {{"en", "EnableAD = 0;"}});
}

TEST_F(SwitchFiles, ControlWritesAlsoWhenNothingChanges) {
  inHost(information({{"EnableAD", true}}), [](const Host& host) {
    const FileState before = aged(propertyList(host));
    EXPECT_TRUE(QBHPHelperControl::share().saveEnableADToPlistFile());
    const FileState after = stateOf(propertyList(host));
    EXPECT_GT(after.seconds, before.seconds);
    EXPECT_EQ(after.inode, before.inode);
    EXPECT_EQ(after.bytes, before.bytes);
  });
}

TEST_F(SwitchFiles, ControlWithoutTheKeySucceedsAndWritesNothing) {
  inHost(information(), [](const Host& host) {
    const FileState before = aged(propertyList(host));
    EXPECT_TRUE(QBHPHelperControl::share().saveEnableADToPlistFile());
    EXPECT_EQ(stateOf(propertyList(host)), before);
    // A key that is added later is not in the information dictionary of this process.
    writeBundle(host.bundle, information({{"EnableAD", "YES"}}));
    EXPECT_TRUE(QBHPHelperControl::share().saveEnableADToPlistFile());
    EXPECT_EQ(dictionaryIn(propertyList(host)), information({{"EnableAD", "YES"}}));
  });
}

TEST_F(SwitchFiles, ControlWithoutAPropertyListSucceeds) {
  inHost(information({{"EnableAD", true}}), [](const Host& host) {
    QBHPHelperControl::share();
    ASSERT_NE(Bundle::main().objectForInfoDictionaryKey("EnableAD"), nullptr);
    fs::remove(propertyList(host));
    EXPECT_TRUE(QBHPHelperControl::share().saveEnableADToPlistFile());
    EXPECT_FALSE(fs::exists(propertyList(host)));
  });
}

TEST_F(SwitchFiles, ControlFailsWhenTheFileCannotBeReadOrWritten) {
  inHost(information({{"EnableAD", true}}), [](const Host& host) {
    auto& control = QBHPHelperControl::share();
    ASSERT_NE(Bundle::main().objectForInfoDictionaryKey("EnableAD"), nullptr);
    fs::permissions(propertyList(host), fs::perms(0444));
    const FileState before = aged(propertyList(host));
    {
      const ObeyedPermissions obeyed;
      EXPECT_FALSE(control.saveEnableADToPlistFile());
    }
    EXPECT_EQ(stateOf(propertyList(host)), before);
    fs::permissions(propertyList(host), fs::perms(0644));
    writeFile(propertyList(host), "no property list <");
    EXPECT_FALSE(control.saveEnableADToPlistFile());
    EXPECT_EQ(readFile(propertyList(host)), "no property list <");
  });
}

}  // namespace
}  // namespace qbdkr::test
