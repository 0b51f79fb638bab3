#include <gtest/gtest.h>

#include <array>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include <ClientComm/Exceptions.h>
#include <ClientComm/QBHPAppEventBase.h>

#include "Host.h"

namespace qbdkr {
namespace {

using test::Host;
using test::hostInformation;
using test::inHost;

class Service : public QBHPAppEventBase {
 public:
  String join(Text first, Text second) {
    calls.push_back("join");
    return std::string(first.value_or("(absent)")) + '+' + std::string(second.value_or("(absent)"));
  }
  OSErr zero(Text) {
    calls.push_back("zero");
    return noErr;
  }
  OSErr seven() { return 7; }
  void nothing() { calls.push_back("nothing"); }
  String absent() { return std::nullopt; }
  String empty() { return ""; }
  std::string plain() const { return "plain"; }
  String raises() { throw std::runtime_error("raised"); }

  std::vector<std::string> calls;

  [[nodiscard]] std::string_view className() const override { return "Service"; }

 protected:
  [[nodiscard]] std::span<const Method> methods() const override {
    using Self = Service;
    static constexpr std::array table{
        method<&Self::join>(selector<&Self::join>("join:second:")),
        method<&Self::zero>(selector<&Self::zero>("zero:")),
        method<&Self::seven>(selector<&Self::seven>("seven")),
        method<&Self::nothing>(selector<&Self::nothing>("nothing")),
        method<&Self::absent>(selector<&Self::absent>("absent")),
        method<&Self::empty>(selector<&Self::empty>("empty")),
        method<&Self::plain>(selector<&Self::plain>("plain")),
        method<&Self::raises>(selector<&Self::raises>("raises")),
    };
    return table;
  }
};

class AppEventBase : public testing::Test {
 protected:
  String perform(std::string_view selector, const std::vector<Text>& arguments = {}) {
    return service.performSelector(selector, arguments);
  }
  Service service;
};

TEST_F(AppEventBase, CallsTheMethodWithTheArgumentsInOrder) {
  EXPECT_EQ(perform("join:second:", {"a", "b"}), "a+b");
  EXPECT_EQ(service.calls, std::vector<std::string>{"join"});
}

TEST_F(AppEventBase, MissingArgumentsArePassedAsAbsent) {
  EXPECT_EQ(perform("join:second:", {"a"}), "a+(absent)");
  EXPECT_EQ(perform("join:second:"), "(absent)+(absent)");
}

TEST_F(AppEventBase, AbsentAndEmptyArgumentsStayApart) {
  EXPECT_EQ(perform("join:second:", {std::nullopt, ""}), "(absent)+");
}

TEST_F(AppEventBase, TooManyArgumentsThrowAndCallNothing) {
  EXPECT_THROW(perform("join:second:", {"a", "b", "c"}), InvalidArgumentException);
  EXPECT_THROW(perform("nothing", {"a"}), InvalidArgumentException);
  EXPECT_TRUE(service.calls.empty());
}

TEST_F(AppEventBase, AMethodThatTheObjectDoesNotHaveGivesNoResult) {
  EXPECT_EQ(perform("missing:"), std::nullopt);
  EXPECT_EQ(perform("missing:", {"a", "b"}), std::nullopt);
  EXPECT_EQ(perform(""), std::nullopt);
}

TEST_F(AppEventBase, NamesMatchAsAWhole) {
  EXPECT_EQ(perform("join"), std::nullopt);
  EXPECT_EQ(perform("join:"), std::nullopt);
  EXPECT_EQ(perform("join:second"), std::nullopt);
  EXPECT_EQ(perform("join:second::"), std::nullopt);
  EXPECT_EQ(perform("Join:second:"), std::nullopt);
  EXPECT_EQ(perform("zero"), std::nullopt);
  EXPECT_TRUE(service.calls.empty());
}

TEST_F(AppEventBase, AStatusIsNoResult) {
  EXPECT_EQ(perform("zero:", {"a"}), std::nullopt);
  EXPECT_EQ(perform("seven"), std::nullopt);
  EXPECT_EQ(service.calls, std::vector<std::string>{"zero"});
}

TEST_F(AppEventBase, NothingIsNoResult) {
  EXPECT_EQ(perform("nothing"), std::nullopt);
  EXPECT_EQ(service.calls, std::vector<std::string>{"nothing"});
}

TEST_F(AppEventBase, TextResultsAreReturnedAsTheyAre) {
  EXPECT_EQ(perform("absent"), std::nullopt);
  EXPECT_EQ(perform("empty"), "");
  EXPECT_EQ(perform("plain"), "plain");
}

TEST_F(AppEventBase, WhatAMethodThrowsReachesTheCaller) {
  EXPECT_THROW(perform("raises"), std::runtime_error);
}

TEST_F(AppEventBase, BundleIDSetIsSharedByAllObjectsAndOnlyGrows) {
  Service other;
  const auto before = service.bundleIDSet();
  service.setBundleID("com.Example.One");
  other.setBundleID("com.Example.Two");
  service.setBundleID("com.Example.One");
  auto expected = before;
  expected.insert({"com.Example.One", "com.Example.Two"});
  EXPECT_EQ(service.bundleIDSet(), expected);
  EXPECT_EQ(other.bundleIDSet(), expected);
  EXPECT_EQ(Service().bundleIDSet(), expected);
}

TEST_F(AppEventBase, BundleIDSetHoldsTheFirst4096AndTakesTheOthersInSilence) {
  inHost(hostInformation(), [this](const Host&) {
    constexpr int most = 4096;
    for (int i = 0; i < most; ++i) service.setBundleID("com.Example.Number" + std::to_string(i));
    EXPECT_EQ(service.bundleIDSet().size(), std::size_t{most});
    const auto before = service.bundleIDSet();
    service.setBundleID("com.Example.OneMore");
    EXPECT_EQ(service.bundleIDSet(), before);
    service.setBundleID("com.Example.Number7");
    EXPECT_EQ(service.bundleIDSet(), before);
    EXPECT_THROW(service.setBundleID(std::nullopt), InvalidArgumentException);
  });
}

TEST_F(AppEventBase, AbsentBundleIDThrowsAndAddsNothing) {
  const auto before = service.bundleIDSet();
  EXPECT_THROW(service.setBundleID(std::nullopt), InvalidArgumentException);
  EXPECT_EQ(service.bundleIDSet(), before);
}

TEST_F(AppEventBase, ExceptionsAreThePlatformsKinds) {
  EXPECT_THROW(throw RangeException("x"), std::out_of_range);
  EXPECT_THROW(throw UnrecognizedSelectorException("x"), std::logic_error);
  EXPECT_THROW(throw InvalidArgumentException("x"), std::invalid_argument);
}

}  // namespace
}  // namespace qbdkr
