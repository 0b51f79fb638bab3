#include "Desktop.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <QIcon>
#include <QPalette>
#include <QSocketNotifier>
#include <csignal>
#include <cstdint>

#include <ClientComm/Bundle.h>
#include <ClientComm/RunLoop.h>

namespace acme {
namespace {

int ending = -1;  // becomes readable when a signal asks for the end

void end(int /*signal*/) {
  const std::uint64_t one = 1;
  [[maybe_unused]] const auto written = ::write(ending, &one, sizeof one);
}

}  // namespace

void joinDesktop(QApplication& app) {
  auto* events =
      new QSocketNotifier(qbdkr::RunLoop::main().descriptor(), QSocketNotifier::Read, &app);
  QObject::connect(events, &QSocketNotifier::activated, [] { qbdkr::RunLoop::main().dispatch(); });

  ending = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  auto* endings = new QSocketNotifier(ending, QSocketNotifier::Read, &app);
  QObject::connect(endings, &QSocketNotifier::activated, &QCoreApplication::quit);
  std::signal(SIGTERM, end);
  std::signal(SIGINT, end);

  const qbdkr::Bundle& bundle = qbdkr::Bundle::main();
  const auto value = [&bundle](std::string_view key) {
    return QString::fromStdString(bundle.infoString(key).value_or(""));
  };
  QGuiApplication::setDesktopFileName(value(qbdkr::kCFBundleIdentifierKey));
  QGuiApplication::setApplicationDisplayName(value(qbdkr::kCFBundleNameKey));
  const auto icon = bundle.pathForResource("Icon", "svg");  // shown if Qt's plugin for SVG is there
  if (icon) QGuiApplication::setWindowIcon(QIcon(QString::fromStdString(*icon)));
  if (qEnvironmentVariable("ACME_SCHEME") == "dark") {
    QPalette dark(QColor(0x3c, 0x3f, 0x45), QColor(0x26, 0x28, 0x2c));
    dark.setColor(QPalette::Base, QColor(0x1b, 0x1c, 0x1f));
    QApplication::setPalette(dark);
  }
}

QString text(const char* english) {
  return QString::fromStdString(qbdkr::Bundle::main().infoString(english).value_or(english));
}

}  // namespace acme
