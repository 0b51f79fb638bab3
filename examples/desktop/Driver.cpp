#include "Driver.h"

#include <unistd.h>

#include <QAbstractButton>
#include <QDeadlineTimer>
#include <QLabel>
#include <QPixmap>
#include <QPlainTextEdit>
#include <QScreen>
#include <QSocketNotifier>
#include <QWindow>
#include <algorithm>
#include <array>
#include <chrono>
#include <memory>

namespace acme {
namespace {

template <class Widget>
Widget* find(const QString& name) {
  for (QWidget* window : QApplication::topLevelWidgets()) {
    auto* found = window->findChild<Widget*>(name);
    if (found != nullptr && found->isVisible()) return found;
  }
  return nullptr;
}

QString press(const QString& name) {
  auto* button = find<QAbstractButton>(name);
  const QWidget* modal = QApplication::activeModalWidget();
  if (button == nullptr || !button->isEnabled()) return "no such button: " + name;
  if (modal != nullptr && button->window() != modal) return "behind a dialog: " + name;
  // Once this command has returned: it may open a dialog, in which further commands are read.
  QMetaObject::invokeMethod(button, "click", Qt::QueuedConnection);
  return "pressed " + name;
}

QString read(const QString& name) {
  QString text = "(nothing)";
  if (const auto* label = find<QLabel>(name)) text = label->text();
  if (const auto* field = find<QPlainTextEdit>(name)) text = field->toPlainText();
  return name + ": " + text.replace('\n', " | ");
}

bool areAllExposed() {
  return std::ranges::all_of(QGuiApplication::topLevelWindows(), [](const QWindow* window) {
    return !window->isVisible() || window->isExposed();
  });
}

QString picture(const QString& file) {
  const QDeadlineTimer deadline(std::chrono::seconds(5));
  while (!areAllExposed() && !deadline.hasExpired()) {
    QCoreApplication::processEvents(QEventLoop::ExcludeSocketNotifiers, 50);
  }
  QCoreApplication::processEvents(QEventLoop::ExcludeSocketNotifiers);  // they are drawn
  QPixmap pixels = QGuiApplication::primaryScreen()->grabWindow(0);
  if (pixels.isNull() && QApplication::activeWindow() != nullptr) {
    pixels = QApplication::activeWindow()->grab();
  }
  constexpr int small = 0;  // the quality of a PNG file is its size
  return (pixels.save(file, "PNG", small) ? "picture " : "no picture ") + file;
}

QString run(const QString& line) {
  const QString name = line.section(' ', 1);
  if (line.startsWith("press ")) return press(name);
  if (line.startsWith("read ")) return read(name);
  if (line.startsWith("picture ")) return picture(name);
  return "no such command: " + line;
}

}  // namespace

void driveByStandardInput(QApplication& app, const Transcript& transcript) {
  auto* input = new QSocketNotifier(STDIN_FILENO, QSocketNotifier::Read, &app);
  const auto rest = std::make_shared<QByteArray>();
  QObject::connect(input, &QSocketNotifier::activated, [input, rest, &transcript] {
    std::array<char, 4096> bytes{};
    const auto count = ::read(STDIN_FILENO, bytes.data(), bytes.size());
    if (count <= 0) {
      input->setEnabled(false);
      return QCoreApplication::quit();
    }
    rest->append(bytes.data(), count);
    for (auto end = rest->indexOf('\n'); end >= 0; end = rest->indexOf('\n')) {
      const QString line = QString::fromUtf8(rest->first(end));
      rest->remove(0, end + 1);
      transcript.write(run(line).toStdString());
    }
  });
}

}  // namespace acme
