#include <gtest/gtest.h>

#include <memory>

#include "ClientComm/ClassRegistry.h"
#include "ClientComm/QBHPGetDataByHelper.h"
#include "ClientComm/QBHPHelperControl.h"

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

TEST(ClassRegistry, KnowsTheServicesOfTheLibrary) {
  const auto control = makeObject("QBHPHelperControl");
  EXPECT_NE(dynamic_cast<QBHPHelperControl*>(control.get()), nullptr);
  const auto data = makeObject("QBHPGetDataByHelper");
  EXPECT_NE(dynamic_cast<QBHPGetDataByHelper*>(data.get()), nullptr);
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

}  // namespace
}  // namespace qbdkr
