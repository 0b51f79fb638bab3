// What the host's identifier and information dictionary say of it. Every body is a process of its
// own, because the results are kept for as long as one lives.

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "ClientComm/Exceptions.h"
#include "ClientComm/QBHPConfig.h"
#include "Host.h"
#include "Seams.h"

namespace qbdkr::test {
namespace {

PropertyList::Dictionary informationWith(const char* identifier) {
  return {{"CFBundleIdentifier", identifier}};
}

TEST(Config, NamesAreTheMiddlePartsInLowerCase) {
  inHost(informationWith("com.Acme.PhotoTool"), [](const Host&) {
    EXPECT_EQ(QBHPConfig::brandName(), "acme");
    EXPECT_EQ(QBHPConfig::helperName(), "acme phototool");
  });
}

TEST(Config, HelperNameDoesNotNeedTheBrandNameFirst) {
  inHost(informationWith("com.Acme.PhotoTool"), [](const Host&) {
    EXPECT_EQ(QBHPConfig::helperName(), "acme phototool");
    EXPECT_EQ(QBHPConfig::brandName(), "acme");
  });
}

TEST(Config, FurtherPartsAreIgnored) {
  inHost(informationWith("com.Acme.Photo.Tool.Beta"), [](const Host&) {
    EXPECT_EQ(QBHPConfig::brandName(), "acme");
    EXPECT_EQ(QBHPConfig::helperName(), "acme photo");
  });
}

TEST(Config, LowerCaseIsThatOfAllScripts) {
  inHost(informationWith("com.ÄCME.ФОТО"), [](const Host&) {
    EXPECT_EQ(QBHPConfig::brandName(), "äcme");
    EXPECT_EQ(QBHPConfig::helperName(), "äcme фото");
  });
}

TEST(Config, EmptyPartsAreParts) {
  inHost(informationWith(".."), [](const Host&) {
    EXPECT_EQ(QBHPConfig::brandName(), "");
    EXPECT_EQ(QBHPConfig::helperName(), " ");
  });
}

TEST(Config, TwoPartsAreABrandButNoHelper) {
  inHost(informationWith("com.Acme"), [](const Host&) {
    EXPECT_EQ(QBHPConfig::brandName(), "acme");
    EXPECT_THROW(QBHPConfig::helperName(), RangeException);
    EXPECT_THROW(QBHPConfig::helperName(), std::out_of_range);  // nothing was kept
    EXPECT_EQ(QBHPConfig::brandName(), "acme");
  });
}

TEST(Config, OnePartIsOutOfRangeForBoth) {
  for (const char* identifier : {"Acme", ""}) {
    inHost(informationWith(identifier), [](const Host&) {
      for (int call = 0; call < 2; ++call) {
        EXPECT_THROW(QBHPConfig::brandName(), RangeException);
        EXPECT_THROW(QBHPConfig::helperName(), RangeException);
      }
    });
  }
}

TEST(Config, WithoutAnIdentifierTheBrandIsAbsentAndTheHelperTwoNulls) {
  inHost({{"CFBundleName", "Host"}}, [](const Host&) {
    for (int call = 0; call < 2; ++call) {
      EXPECT_EQ(QBHPConfig::brandName(), std::nullopt);
      EXPECT_EQ(QBHPConfig::helperName(), "(null) (null)");
    }
  });
}

TEST(Config, NamesAreKeptFromTheFirstCallOn) {
  inHost(informationWith("com.Acme.PhotoTool"), [](const Host&) {
    EXPECT_EQ(QBHPConfig::brandName(), "acme");
    EXPECT_EQ(QBHPConfig::helperName(), "acme phototool");
    const OtherInformation other(informationWith("com.Other.Name"));
    EXPECT_EQ(QBHPConfig::brandName(), "acme");
    EXPECT_EQ(QBHPConfig::helperName(), "acme phototool");
  });
}

TEST(Config, OfMissingNamesOnlyTheHelpersIsKept) {
  inHost({{"CFBundleName", "Host"}}, [](const Host&) {
    EXPECT_EQ(QBHPConfig::brandName(), std::nullopt);
    EXPECT_EQ(QBHPConfig::helperName(), "(null) (null)");
    const OtherInformation other(informationWith("com.Other.Name"));
    EXPECT_EQ(QBHPConfig::brandName(), "other");
    EXPECT_EQ(QBHPConfig::helperName(), "(null) (null)");
  });
}

TEST(Config, WhatIsOutOfRangeIsNotKept) {
  inHost(informationWith("Acme"), [](const Host&) {
    EXPECT_THROW(QBHPConfig::brandName(), RangeException);
    EXPECT_THROW(QBHPConfig::helperName(), RangeException);
    const OtherInformation other(informationWith("com.Other.Name"));
    EXPECT_EQ(QBHPConfig::brandName(), "other");
    EXPECT_EQ(QBHPConfig::helperName(), "other name");
  });
}

TEST(Config, HelperPIDIsReadEachTime) {
  inHost(hostInformation(), [](const Host&) {
    EXPECT_EQ(QBHPConfig::helperPID(), "4711");
    const OtherInformation other({{"PID", "4712"}});
    EXPECT_EQ(QBHPConfig::helperPID(), "4712");
  });
}

TEST(Config, HelperPIDIsTheProductIdentifierAsItStands) {
  for (const char* stored : {"4711", "", " aB "}) {
    auto info = informationWith("com.Acme.PhotoTool");
    info.set("PID", stored);
    inHost(info, [stored](const Host&) { EXPECT_EQ(QBHPConfig::helperPID(), stored); });
  }
}

TEST(Config, HelperPIDThatIsANumberIsItsDigits) {
  for (const auto& [stored, text] : std::vector<std::pair<PropertyList, const char*>>{
           {1001, "1001"}, {3.5, "3.5"}, {true, "1"}, {false, "0"}}) {
    auto info = informationWith("com.Acme.PhotoTool");
    info.set("PID", stored);
    inHost(info, [text = text](const Host&) { EXPECT_EQ(QBHPConfig::helperPID(), text); });
  }
}

TEST(Config, HelperPIDWithoutATextIsAbsent) {
  auto info = informationWith("com.Acme.PhotoTool");
  info.set("PID", PropertyList::Array{"4711"});
  inHost(info, [](const Host&) { EXPECT_EQ(QBHPConfig::helperPID(), std::nullopt); });
}

TEST(Config, HelperPIDIsAbsentWithoutTheKey) {
  inHost(informationWith("com.Acme.PhotoTool"), [](const Host&) {
    EXPECT_EQ(QBHPConfig::helperPID(), std::nullopt);
    EXPECT_EQ(QBHPConfig::helperPID(), std::nullopt);
  });
}

TEST(Config, FirstCallsMayComeFromManyThreads) {
  inHost(informationWith("com.Acme.PhotoTool"), [](const Host&) {
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
      threads.emplace_back([] {
        EXPECT_EQ(QBHPConfig::brandName(), "acme");
        EXPECT_EQ(QBHPConfig::helperName(), "acme phototool");
      });
    }
    for (std::thread& thread : threads) thread.join();
  });
}

}  // namespace
}  // namespace qbdkr::test
