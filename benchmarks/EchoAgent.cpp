// The peer of the benchmarks: a helper agent that returns the texts it gets.

#include <array>

#include <ClientComm/QBHPAppleEventProcesser.h>
#include <ClientComm/RunLoop.h>

namespace {

class Echo : public qbdkr::QBHPAppEventBase {
 public:
  Echo() { qbdkr::QBHPAppleEventProcesser::share().setObjectforKeyToMapTable(*this, kClassName); }

  qbdkr::String echo(qbdkr::Text text) { return std::string(text.value_or("")); }
  qbdkr::OSErr take(qbdkr::Text /*text*/) { return qbdkr::noErr; }

  static constexpr std::string_view kClassName = "Echo";
  [[nodiscard]] std::string_view className() const override { return kClassName; }

 protected:
  [[nodiscard]] std::span<const qbdkr::Method> methods() const override {
    static constexpr std::array table{
        qbdkr::method<&Echo::echo>(qbdkr::selector<&Echo::echo>("echo:")),
        qbdkr::method<&Echo::take>(qbdkr::selector<&Echo::take>("take:"))};
    return table;
  }
};

}  // namespace

int main() {
  Echo echo;
  qbdkr::RunLoop::main().run();
}
