// A helper agent with a window of its own, which hosts show and hide.

#include <QApplication>
#include <QLabel>
#include <QScreen>
#include <QUuid>
#include <QVBoxLayout>
#include <array>
#include <chrono>
#include <initializer_list>
#include <map>
#include <string>
#include <utility>

#include <ClientComm/Bundle.h>
#include <ClientComm/HelperLifetime.h>
#include <ClientComm/QBHPAppleEventProcesser.h>
#include <ClientComm/QBHPAppleEventSender.h>
#include <ClientComm/QBHPGetDataByHelper.h>
#include <ClientComm/QBHPHelperControl.h>
#include <ClientComm/QBHPUpgradeByHelper.h>
#include <ClientComm/QBHPUploadByHelper.h>
#include <ClientComm/UserDefaults.h>

#include "../Desktop.h"
#include "Transcript.h"

namespace {

using acme::text;
using qbdkr::method;
using qbdkr::noErr;
using qbdkr::OSErr;
using qbdkr::QBHPAppleEventProcesser;
using qbdkr::String;
using qbdkr::Text;

class Window : public QWidget {
 public:
  explicit Window(const acme::Transcript& transcript) : transcript_(transcript) {
    auto* column = new QVBoxLayout(this);
    column->addWidget(new QLabel("<b>" + text("I am the helper agent.") + "</b>"));
    column->addWidget(products_);
    column->addWidget(new QLabel(text("Close me, and I go on without a window.")));
    column->setSizeConstraint(QLayout::SetFixedSize);
  }

  void note(const std::string& line) { transcript_.write(line); }

  void setProducts(const QString& products) {
    products_->setText(products.isEmpty() ? text("No product has started me.")
                                          : text("I work for: %1").arg(products));
  }

 protected:
  // In the corner where it covers least.
  void showEvent(QShowEvent* /*event*/) override {
    constexpr int edge = 30;
    const QSize size = sizeHint() + QSize(edge, edge);
    move(screen()->availableGeometry().bottomRight() - QPoint(size.width(), size.height()));
    isSeen_ = false;
  }
  void paintEvent(QPaintEvent* event) override {
    QWidget::paintEvent(event);
    if (!std::exchange(isSeen_, true)) note("window is shown");
  }
  void hideEvent(QHideEvent* /*event*/) override { note("window is hidden"); }

 private:
  const acme::Transcript& transcript_;
  bool isSeen_ = false;
  QLabel* products_ = new QLabel(text("No product has started me."), this);
};

// Answers under the name of a class. All requests come on the main thread, to Qt's event loop.
class Service : public qbdkr::QBHPAppEventBase {
 public:
  Service(std::string_view className, Window& window) : className_(className), window_(window) {
    QBHPAppleEventProcesser::share().setObjectforKeyToMapTable(*this, className_);
  }
  ~Service() override { QBHPAppleEventProcesser::share().removeObjectforKeyToMapTable(className_); }
  [[nodiscard]] std::string_view className() const final { return className_; }
  void setBundleID(Text bundleID) final {
    QBHPAppEventBase::setBundleID(bundleID);
    sender_ = bundleID.value_or("");
  }

 protected:
  Window& window() { return window_; }
  [[nodiscard]] const std::string& sender() const { return sender_; }
  void report(const std::string& host, qbdkr::Selector method,
              std::initializer_list<std::string_view> arguments) const {
    qbdkr::QBHPAppleEventSender::share().sendEvnet(host, className_, method.text(), arguments);
  }

 private:
  std::string_view className_;
  Window& window_;
  std::string sender_;
};

class HelperControl : public Service {
 public:
  using Request = qbdkr::QBHPHelperControl;
  explicit HelperControl(Window& window) : Service(Request::kClassName, window) {}

  OSErr start(Text productID, Text version) {
    products_[std::string(productID.value_or(""))] = version.value_or("");
    showProducts();
    report(sender(), Request::kCheckServerOpenCallBack, {"DeskHelper", "1", "0", ""});
    return noErr;
  }
  OSErr stop(Text productID, Text /*version*/) {
    products_.erase(std::string(productID.value_or("")));
    showProducts();
    return noErr;
  }
  OSErr show(Text /*productID*/, Text /*version*/) {
    window().show();
    window().raise();
    return noErr;
  }
  OSErr hide(Text /*productID*/, Text /*version*/) {
    window().hide();
    return noErr;
  }
  OSErr isAlive(Text /*productID*/, Text /*version*/) { return noErr; }
  OSErr exitHelper(Text /*productID*/, Text /*version*/) {
    QCoreApplication::quit();
    return noErr;
  }
  void reportExit() const {
    for (const auto& host : bundleIDSet()) report(host, Request::kHelperExitNotify, {"DeskHelper"});
  }

 protected:
  [[nodiscard]] std::span<const qbdkr::Method> methods() const override {
    using Self = HelperControl;
    static constexpr std::array table{
        method<&Self::start>(Request::kStart),     method<&Self::stop>(Request::kStop),
        method<&Self::show>(Request::kShow),       method<&Self::hide>(Request::kHide),
        method<&Self::isAlive>(Request::kIsAlive), method<&Self::exitHelper>(Request::kExitHelper)};
    return table;
  }

 private:
  void showProducts() {
    QStringList all;
    for (const auto& [product, version] : products_) {
      all << QString("%1 (%2)").arg(QString::fromStdString(product),
                                    QString::fromStdString(version));
    }
    window().setProducts(all.join(", "));
  }

  std::map<std::string, std::string> products_;  // those started: identifier and version
};

class Upgrades : public Service {
 public:
  using Request = qbdkr::QBHPUpgradeByHelper;
  explicit Upgrades(Window& window) : Service(Request::kClassName, window) {}

  OSErr upgrade(Text productID, Text version) {
    report(sender(), Request::kProductUpgradeCallBack,
           {productID.value_or(""), version.value_or(""), "0", ""});
    return noErr;
  }
  OSErr ready(Text /*productID*/, Text /*version*/, Text ready) {
    window().note("answer to the upgrade: " + std::string(ready.value_or("")));
    return noErr;
  }

 protected:
  [[nodiscard]] std::span<const qbdkr::Method> methods() const override {
    static constexpr std::array table{method<&Upgrades::upgrade>(Request::kProductUpgrade),
                                      method<&Upgrades::ready>(Request::kProductReadyToUpgrade)};
    return table;
  }
};

class Pages : public Service {
 public:
  using Request = qbdkr::QBHPUploadByHelper;
  explicit Pages(Window& window) : Service(Request::kClassName, window) {}

  String netErrorPage(Text /*productID*/, Text /*version*/) {
    return qbdkr::Bundle::main().pathForResource("NetworkError", "html");
  }
  String offer(Text productID, Text /*version*/) {
    return "https://www.acme.example/suite/" + std::string(productID.value_or("")) + "###300###200";
  }

 protected:
  [[nodiscard]] std::span<const qbdkr::Method> methods() const override {
    static constexpr std::array table{method<&Pages::netErrorPage>(Request::kNetErrorPagePath),
                                      method<&Pages::offer>(Request::kRegSuiteInfo),
                                      method<&Pages::offer>(Request::kUnRegSuiteInfo)};
    return table;
  }
};

class Data : public Service {
 public:
  using Request = qbdkr::QBHPGetDataByHelper;
  explicit Data(Window& window) : Service(Request::kClassName, window) {}

  // Makes the identifier of this installation once, and keeps it.
  String clientID() {
    auto& settings = qbdkr::UserDefaults::standard();
    if (const auto kept = settings.object("ClientID")) return kept->text();
    const std::string made = QUuid::createUuid().toString(QUuid::Id128).toStdString();
    settings.setObject("ClientID", qbdkr::PropertyList(made));
    return settings.synchronize() ? String(made) : std::nullopt;
  }

 protected:
  [[nodiscard]] std::span<const qbdkr::Method> methods() const override {
    static constexpr std::array table{method<&Data::clientID>(Request::kClientIDFormHelper)};
    return table;
  }
};

}  // namespace

int main(int count, char** arguments) {
  QApplication app(count, arguments);
  acme::joinDesktop(app);
  QApplication::setQuitOnLastWindowClosed(false);
  const acme::Transcript transcript("desktop helper");
  Window window(transcript);
  const HelperControl control(window);
  const Upgrades upgrades(window);
  const Pages pages(window);
  const Data data(window);
  // RunLoop::stop() would not end Qt's loop.
  qbdkr::endWhenIdle(std::chrono::minutes(10), [] { QCoreApplication::quit(); });
  qbdkr::endWithBus(std::chrono::seconds(10), [] { QCoreApplication::quit(); });
  transcript.write("started, process " + std::to_string(QCoreApplication::applicationPid()));
  const int result = QApplication::exec();

  const auto inTwoSeconds = std::chrono::steady_clock::now() + std::chrono::seconds(2);
  qbdkr::serveWhatHasCome(inTwoSeconds);
  control.reportExit();
  qbdkr::QBHPAppleEventSender::share().flush(inTwoSeconds);
  transcript.write("exits");
  return result;
}
