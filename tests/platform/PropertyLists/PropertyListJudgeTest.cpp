// Checks the reader and the writer against an independent implementation, Python's.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <fstream>
#include <iostream>
#include <limits>
#include <optional>
#include <string>
#include <string_view>

#include <ClientComm/PropertyList.h>

#include "Platform/PropertyLists/PropertyListReader.h"
#include "Platform/PropertyLists/PropertyListWriter.h"
#include "Platform/PropertyLists/TextPropertyList.h"
#include "support/ChildProcess.h"
#include "support/Environment.h"

namespace qbdkr {
namespace {

using namespace std::string_literals;
using Array = PropertyList::Array;
using Data = PropertyList::Data;
using Date = PropertyList::Date;
using Dictionary = PropertyList::Dictionary;
using Integer = PropertyList::Integer;

// The value on which both sides must agree, in Python. Identifiers exist only in the binary form.
constexpr std::string_view pythonValue = R"(
import datetime, math, plistlib, sys
value = {
    'text': 'Gr\u00fc\u00dfe \u263a \U0001f600 <&> "\'\r\n\t',
    'empty': '',
    '\U0001f600 key': True,
    'no': False,
    'one': 1, 'minus one': -1, 'byte': 255, 'word': 65536,
    'largest': 2**64 - 1, 'smallest': -2**63, 'two to 63': 2**63, 'two to 63 less 1': 2**63 - 1,
    'tenth': 0.1, 'huge': 1e300, 'negative': -2.5, 'infinite': -math.inf,
    'date': datetime.datetime(2026, 8, 1, 12, 30, 5),
    'old date': datetime.datetime(1804, 2, 29, 23, 59, 59),
    'data': bytes(range(256)), 'no data': b'',
    'list': [1, 'two', [3.5, [], {}], {'four': [True]}],
    'long list': list(range(300)),
    'long text': 'x' * 1000,
}
)";

Integer largest() {
  Integer integer;
  integer.magnitude = std::numeric_limits<std::uint64_t>::max();
  return integer;
}

Integer integerOfTwoTo63() {
  Integer integer;
  integer.magnitude = std::uint64_t{1} << 63;
  return integer;
}

Dictionary ownValue() {
  std::string everyByte;
  for (int i = 0; i < 256; ++i) everyByte += static_cast<char>(i);
  Array numbers;
  for (int i = 0; i < 300; ++i) numbers.emplace_back(i);
  return {{"text", "Gr\u00FC\u00DFe \u263A \U0001F600 <&> \"'\r\n\t"},
          {"empty", ""},
          {"\U0001F600 key", true},
          {"no", false},
          {"one", 1},
          {"minus one", -1},
          {"byte", 255},
          {"word", 65536},
          {"largest", largest()},
          {"smallest", std::numeric_limits<std::int64_t>::min()},
          {"two to 63", integerOfTwoTo63()},
          {"two to 63 less 1", std::numeric_limits<std::int64_t>::max()},
          {"tenth", 0.1},
          {"huge", 1e300},
          {"negative", -2.5},
          {"infinite", -std::numeric_limits<double>::infinity()},
          {"date", Date{807280205}},
          {"old date", Date{-6211641601}},
          {"data", Data{everyByte}},
          {"no data", Data{}},
          {"list", Array{1, "two", Array{3.5, Array{}, Dictionary()},
                         Dictionary{{"four", Array{PropertyList(true)}}}}},
          {"long list", numbers},
          {"long text", std::string(1000, 'x')}};
}

// Runs Python and returns whether it succeeded. Passes on its complaints.
bool python(const std::string& program, const std::string& path) {
  test::ChildProcess child({"/usr/bin/python3", "-c", program, path},
                           {.environment = test::ownEnvironment()});
  const bool succeeds = child.succeeds();
  for (const std::string& line : child.logToItsEnd()) std::cerr << line << '\n';
  return succeeds;
}

class PropertyListJudge : public testing::Test {
 protected:
  [[nodiscard]] std::string path() const { return folder_.path() / "list.plist"; }

  [[nodiscard]] bool judges(const PropertyList& list, const std::string& assertion) const {
    const std::optional<std::string> xml = xmlPropertyList(list);
    if (!xml) return false;
    std::ofstream(path(), std::ios::binary) << *xml;
    return python(std::string(pythonValue) + "read = plistlib.load(open(sys.argv[1], 'rb'))\n" +
                      "assert " + assertion + ", read\n",
                  path());
  }

  [[nodiscard]] std::optional<Dictionary> written(const std::string& expression,
                                                  const std::string& form) const {
    return written(std::string(pythonValue), expression, form);
  }

  [[nodiscard]] std::optional<Dictionary> written(const std::string& program,
                                                  const std::string& expression,
                                                  const std::string& form) const {
    const bool hasWritten =
        python("import plistlib, sys\n" + program + "with open(sys.argv[1], 'wb') as file:\n" +
                   "    plistlib.dump(" + expression + ", file, fmt=plistlib." + form +
                   ", sort_keys=False)\n",
               path());
    if (!hasWritten) return std::nullopt;
    return readDictionaryFile(path());
  }

 private:
  test::TemporaryDirectory folder_;
};

TEST_F(PropertyListJudge, AgreesOnWhatIsWritten) {
  EXPECT_TRUE(judges(ownValue(), "read == value"));
  EXPECT_TRUE(judges(ownValue(), "list(read) == list(value)"));
  EXPECT_TRUE(judges(ownValue(), "all(type(read[key]) is type(value[key]) for key in value)"));
}

TEST_F(PropertyListJudge, FindsADifference) {
  Dictionary different = ownValue();
  different.set("minus one", largest());
  EXPECT_FALSE(judges(different, "read == value"));
}

TEST_F(PropertyListJudge, AgreesOnScalarsAndNaN) {
  EXPECT_TRUE(judges("text", "read == 'text'"));
  EXPECT_TRUE(judges(Array{std::numeric_limits<double>::quiet_NaN()}, "math.isnan(read[0])"));
  EXPECT_TRUE(judges(Array{1.0}, "type(read[0]) is float"));
}

TEST_F(PropertyListJudge, ItsXMLListsAreRead) {
  // Its XML writer turns carriage returns into newlines; only its binary lists keep them.
  Dictionary expected = ownValue();
  expected.set("text", "Gr\u00FC\u00DFe \u263A \U0001F600 <&> \"'\n\t");
  EXPECT_EQ(written("value", "FMT_XML"), expected);
}

TEST_F(PropertyListJudge, ItsBinaryListsAreRead) {
  EXPECT_EQ(written("value", "FMT_BINARY"), ownValue());
}

TEST_F(PropertyListJudge, ItsIdentifiersAreRead) {
  const Dictionary expected{{"ids", Array{Dictionary{{"CF$UID", 1}}, Dictionary{{"CF$UID", 70000}},
                                          Dictionary{{"CF$UID", std::int64_t{1} << 40}}}}};
  EXPECT_EQ(
      written("{'ids': [plistlib.UID(1), plistlib.UID(70000), plistlib.UID(2**40)]}", "FMT_BINARY"),
      expected);
}

TEST_F(PropertyListJudge, ItsListsOfManyObjectsAreRead) {
  const std::optional<Dictionary> many =
      written("{'k%d' % i: [i, str(i), i / 2] for i in range(30000)}", "FMT_BINARY");
  ASSERT_TRUE(many);
  EXPECT_EQ(many->size(), 30'000U);
  ASSERT_TRUE(many->find("k29999"));
  EXPECT_EQ(*many->find("k29999"), PropertyList(Array{29999, "29999", 14999.5}));
}

// Such a list holds equal texts and numbers once, and a container once only if it is the same
// object.
TEST_F(PropertyListJudge, ItsListsOfEqualDictionariesAreRead) {
  const std::optional<Dictionary> many =
      written("{'all': [{'k%d' % j: j for j in range(10)} for i in range(1000)]}", "FMT_BINARY");
  ASSERT_TRUE(many);
  EXPECT_EQ(many->find("all")->array()->size(), 1000U);
  EXPECT_EQ(many->find("all")->array()->back().dictionary()->size(), 10U);
}

TEST_F(PropertyListJudge, ItsListsOfOneSharedDictionaryAreRead) {
  const std::optional<Dictionary> shared =
      written("shared = {'key %d' % i: i for i in range(20)}\n",
              "{'a': shared, 'b': shared, 'c': [shared, shared]}", "FMT_BINARY");
  ASSERT_TRUE(shared);
  EXPECT_EQ(*shared->find("a"), *shared->find("b"));
}

// A reader of strings files in ten lines of Python: only pairs of quoted texts.
constexpr std::string_view pythonStrings = R"py(
import re
pairs = {'plain': 'text', '': 'empty key', 'empty': '', 'quotes': '"a" \'b\'', 'back\\slash': '\\n \\" \\',
         'lines': 'one\ntwo\r\nthree\u2028four', 'controls': ''.join(map(chr, range(1, 32))) + '\x7f',
         'comment': '/* no */ // no', 'wide': '\U0001F600 Grüße \u4e2d\u6587 \u202e', '; = {}': '( ) < >'}
def strings(data):
    text = data.decode('utf-16' if data[:2] == b'\xff\xfe' else 'utf-8')
    quoted = r'"((?:[^"\\]|\\.)*)"'
    pair = re.compile(quoted + r'\s*=\s*' + quoted + r'\s*;\s*', re.DOTALL)
    simple = {'n': '\n', 'r': '\r', 't': '\t', 'a': '\a', 'b': '\b', 'f': '\f', 'v': '\v'}
    def plain(match):
        word = match[1]
        return chr(int(word[1:], 16)) if word[0] == 'U' else simple.get(word, word)
    unescaped = lambda part: re.sub(r'\\(U[0-9a-fA-F]{4}|.)', plain, part, flags=re.DOTALL)
    read, place = {}, 0
    while place < len(text):
        found = pair.match(text, place)
        assert found, text[place:]
        read[unescaped(found[1])], place = unescaped(found[2]), found.end()
    return read
)py";

TEST_F(PropertyListJudge, ReadsTheStringsFilesThatAreWritten) {
  const std::string program(pythonStrings);
  const auto pairs = written(program, "pairs", "FMT_BINARY");
  ASSERT_TRUE(pairs.has_value());
  EXPECT_GE(pairs->size(), 10U);
  const auto text = stringsFileText(*pairs);
  ASSERT_TRUE(text.has_value());
  std::ofstream(path(), std::ios::binary) << *text;
  const std::string judge = program + "assert strings(open(sys.argv[1], 'rb').read()) == ";
  EXPECT_TRUE(python("import sys\n" + judge + "pairs\n", path()));
  EXPECT_FALSE(python("import sys\n" + judge + "{**pairs, 'plain': 'another'}\n", path()));
}

}  // namespace
}  // namespace qbdkr
