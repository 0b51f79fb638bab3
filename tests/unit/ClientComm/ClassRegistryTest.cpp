#include <gtest/gtest.h>

#include <memory>
#include <string_view>

#include <ClientComm/ClassRegistry.h>
#include <ClientComm/QBHPCustomerServiceByHelepr.h>
#include <ClientComm/QBHPGetDataByHelper.h>
#include <ClientComm/QBHPHelperControl.h>
#include <ClientComm/QBHPUpgradeByHelper.h>
#include <ClientComm/QBHPUploadByHelper.h>
#include <QBDKRProductClient/QBHPHelperCommunicate.h>

namespace qbdkr {
namespace {

class First : public QBHPAppEventBase {
 public:
  static constexpr std::string_view kClassName = "RegistryTestService";
  [[nodiscard]] std::string_view className() const override { return kClassName; }

 protected:
  [[nodiscard]] std::span<const Method> methods() const override { return {}; }
};

class Second : public First {};

template <class Service>
void expectKnown(std::string_view name) {
  EXPECT_NE(dynamic_cast<Service*>(makeObject(name).get()), nullptr) << name;
}

TEST(ClassRegistry, KnowsTheServicesOfTheLibrary) {
  expectKnown<QBHPHelperControl>("QBHPHelperControl");
  expectKnown<QBHPUpgradeByHelper>("QBHPUpgradeByHelper");
  expectKnown<QBHPUploadByHelper>("QBHPUploadByHelper");
  expectKnown<QBHPCustomerServiceByHelepr>("QBHPCustomerServiceByHelepr");
  expectKnown<QBHPGetDataByHelper>("QBHPGetDataByHelper");
}

TEST(ClassRegistry, KnowsTheCommunicatorAndMakesNoSecondOne) {
  const auto made = makeObject("QBHPHelperCommunicate");
  ASSERT_NE(made, nullptr);
  EXPECT_EQ(made->className(), "QBHPHelperCommunicate");
  EXPECT_EQ(dynamic_cast<QBHPHelperCommunicate*>(made.get()), nullptr);
}

TEST(ClassRegistry, MakesANewObjectEachTime) {
  const auto one = makeObject("QBHPGetDataByHelper");
  const auto other = makeObject("QBHPGetDataByHelper");
  EXPECT_NE(one.get(), other.get());
}

TEST(ClassRegistry, MakesNothingOfAnUnknownName) {
  EXPECT_EQ(makeObject("NoSuchClass"), nullptr);
  EXPECT_EQ(makeObject(""), nullptr);
  EXPECT_EQ(makeObject("qbhphelpercontrol"), nullptr);
  EXPECT_EQ(makeObject("NSObject"), nullptr);
}

TEST(ClassRegistry, ALaterRegistrationReplacesAnEarlierOne) {
  registerClass<First>();
  EXPECT_EQ(dynamic_cast<Second*>(makeObject(First::kClassName).get()), nullptr);
  registerClass(First::kClassName,
                []() -> std::unique_ptr<QBHPAppEventBase> { return std::make_unique<Second>(); });
  EXPECT_NE(dynamic_cast<Second*>(makeObject(First::kClassName).get()), nullptr);
}

std::unique_ptr<QBHPAppEventBase> findForeign(std::string_view className) {
  return className == "ForeignService" ? std::make_unique<Second>() : nullptr;
}

TEST(ClassRegistry, TheFinderIsAskedForTheClassesThatAreNotRegistered) {
  setClassFinder(findForeign);
  EXPECT_NE(dynamic_cast<Second*>(makeObject("ForeignService").get()), nullptr);
  EXPECT_EQ(makeObject("NoSuchClass"), nullptr);
  setClassFinder([](std::string_view) -> std::unique_ptr<QBHPAppEventBase> {
    return std::make_unique<Second>();
  });
  expectKnown<QBHPHelperControl>("QBHPHelperControl");
  setClassFinder(nullptr);
  EXPECT_EQ(makeObject("ForeignService"), nullptr);
}

}  // namespace
}  // namespace qbdkr
