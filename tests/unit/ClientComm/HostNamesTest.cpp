#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <ClientComm/Exceptions.h>
#include <ClientComm/QBHPConfig.h>

#include "ClientComm/HostNames.h"
#include "Host.h"

namespace qbdkr::test {
namespace {

// The names of a host. Tests change its bundle identifier.
class HostNamesTest : public testing::Test {
 protected:
  String identifier = "com.Acme.PhotoTool";
  HostNames names{[this] { return identifier; }};
};

TEST_F(HostNamesTest, NamesAreTheMiddlePartsInLowerCase) {
  identifier = "com.Acme.PhotoTool";
  EXPECT_EQ(names.brandName(), "acme");
  EXPECT_EQ(names.helperName(), "acme phototool");
}

TEST_F(HostNamesTest, HelperNameDoesNotNeedTheBrandNameFirst) {
  identifier = "com.Acme.PhotoTool";
  EXPECT_EQ(names.helperName(), "acme phototool");
  EXPECT_EQ(names.brandName(), "acme");
}

TEST_F(HostNamesTest, FurtherPartsAreIgnored) {
  identifier = "com.Acme.Photo.Tool.Beta";
  EXPECT_EQ(names.brandName(), "acme");
  EXPECT_EQ(names.helperName(), "acme photo");
}

TEST_F(HostNamesTest, LowerCaseIsThatOfAllScripts) {
  identifier = "com.ÄCME.ФОТО";
  EXPECT_EQ(names.brandName(), "äcme");
  EXPECT_EQ(names.helperName(), "äcme фото");
}

TEST_F(HostNamesTest, EmptyPartsAreParts) {
  identifier = "..";
  EXPECT_EQ(names.brandName(), "");
  EXPECT_EQ(names.helperName(), " ");
}

TEST_F(HostNamesTest, TwoPartsAreABrandButNoHelper) {
  identifier = "com.Acme";
  EXPECT_EQ(names.brandName(), "acme");
  EXPECT_THROW(names.helperName(), RangeException);
  EXPECT_THROW(names.helperName(), std::out_of_range);  // nothing was cached
  EXPECT_EQ(names.brandName(), "acme");
}

TEST_F(HostNamesTest, OnePartIsOutOfRangeForBoth) {
  for (const char* ofOnePart : {"Acme", ""}) {
    identifier = ofOnePart;
    for (int call = 0; call < 2; ++call) {
      EXPECT_THROW(names.brandName(), RangeException);
      EXPECT_THROW(names.helperName(), RangeException);
    }
  }
}

TEST_F(HostNamesTest, WithoutAnIdentifierTheBrandIsAbsentAndTheHelperTwoNulls) {
  identifier = std::nullopt;
  for (int call = 0; call < 2; ++call) {
    EXPECT_EQ(names.brandName(), std::nullopt);
    EXPECT_EQ(names.helperName(), "(null) (null)");
  }
}

TEST_F(HostNamesTest, NamesAreKeptFromTheFirstCallOn) {
  identifier = "com.Acme.PhotoTool";
  EXPECT_EQ(names.brandName(), "acme");
  EXPECT_EQ(names.helperName(), "acme phototool");
  identifier = "com.Other.Name";
  EXPECT_EQ(names.brandName(), "acme");
  EXPECT_EQ(names.helperName(), "acme phototool");
}

TEST_F(HostNamesTest, OfMissingNamesOnlyTheHelpersIsKept) {
  identifier = std::nullopt;
  EXPECT_EQ(names.brandName(), std::nullopt);
  EXPECT_EQ(names.helperName(), "(null) (null)");
  identifier = "com.Other.Name";
  EXPECT_EQ(names.brandName(), "other");
  EXPECT_EQ(names.helperName(), "(null) (null)");
}

TEST_F(HostNamesTest, WhatIsOutOfRangeIsNotKept) {
  identifier = "Acme";
  EXPECT_THROW(names.brandName(), RangeException);
  EXPECT_THROW(names.helperName(), RangeException);
  identifier = "com.Other.Name";
  EXPECT_EQ(names.brandName(), "other");
  EXPECT_EQ(names.helperName(), "other name");
}

TEST_F(HostNamesTest, FirstCallsMayComeFromManyThreads) {
  std::vector<std::thread> threads;
  for (int i = 0; i < 8; ++i) {
    threads.emplace_back([this] {
      EXPECT_EQ(names.brandName(), "acme");
      EXPECT_EQ(names.helperName(), "acme phototool");
    });
  }
  for (std::thread& thread : threads) thread.join();
}

// --- QBHPConfig, over the main bundle

TEST(Config, NamesAndProductIdentifierAreThoseOfTheMainBundle) {
  auto info = hostInformation();
  info.set("CFBundleIdentifier", "com.Acme.PhotoTool");
  inHost(info, [](const Host&) {
    for (int call = 0; call < 2; ++call) {
      EXPECT_EQ(QBHPConfig::brandName(), "acme");
      EXPECT_EQ(QBHPConfig::helperName(), "acme phototool");
      EXPECT_EQ(QBHPConfig::helperPID(), "4711");
    }
  });
}

TEST(Config, NamesOfAnIdentifierWithTooFewPartsThrow) {
  inHost({{"CFBundleIdentifier", "Acme"}}, [](const Host&) {
    for (int call = 0; call < 2; ++call) {
      EXPECT_THROW(QBHPConfig::brandName(), RangeException);
      EXPECT_THROW(QBHPConfig::helperName(), RangeException);
      EXPECT_EQ(QBHPConfig::helperPID(), std::nullopt);
    }
  });
}

}  // namespace
}  // namespace qbdkr::test
