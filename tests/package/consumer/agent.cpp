// Uses the library as a helper agent does: one service, with a table of its own.

#include <array>

#include <ClientComm/ClassRegistry.h>
#include <ClientComm/QBHPAppleEventProcesser.h>
#include <ClientComm/RunLoop.h>

class Control : public qbdkr::QBHPAppEventBase {
 public:
  static constexpr std::string_view kClassName = "QBHPHelperControl";
  qbdkr::OSErr start(qbdkr::Text, qbdkr::Text) { return qbdkr::noErr; }
  std::string_view className() const override { return kClassName; }

 protected:
  std::span<const qbdkr::Method> methods() const override {
    static constexpr std::array table{
        qbdkr::method<&Control::start>(qbdkr::selector<&Control::start>("start:prodeuctVersion:"))};
    return table;
  }
};

int main() {
  qbdkr::registerClass<Control>();
  const auto control = qbdkr::makeObject("QBHPHelperControl");
  const std::array<qbdkr::Text, 2> arguments{"1001", "1.0"};
  control->performSelector("start:prodeuctVersion:", arguments);
  qbdkr::RunLoop::main().perform([] { qbdkr::RunLoop::main().stop(); });
  qbdkr::RunLoop::main().run();
  return 0;
}
