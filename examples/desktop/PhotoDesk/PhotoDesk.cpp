// A host application with a window: the calls of the framework as buttons, and a live log of what
// is asked and reported. Its helper agent is installed, started and kept alive from the start on.

#include <QApplication>
#include <QCommandLineParser>
#include <QDir>
#include <QGridLayout>
#include <QGroupBox>
#include <QLabel>
#include <QMessageBox>
#include <QPlainTextEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QTime>
#include <QVBoxLayout>
#include <chrono>
#include <functional>
#include <string>
#include <variant>

#include <ClientComm/Bundle.h>
#include <ClientComm/QBHPAppleEventSender.h>
#include <QBDKRProductClient/QBHPHelper.h>
#include <QBDKRProductClient/QBHPHelperCommunicate.h>

#include "../Desktop.h"
#include "../Driver.h"

namespace {

using acme::text;
using qbdkr::QBHPHelperCommunicate;

QString shown(const qbdkr::String& value) {
  return value ? QString::fromStdString(*value) : text("(no answer)");
}
QString shown(const qbdkr::QBHPSuiteInfo& page) {
  return QString::fromStdString(page.description());
}

// How a state looks in the window.
struct StateView {
  QString text;
  QColor colour;
  int progress = -1;  // percent; none if negative
};

struct ViewOfState {
  StateView operator()(const qbdkr::HelperInstalling& state) const {
    const auto percent = state.bytesTotal == 0 ? 0 : state.bytesDone * 100 / state.bytesTotal;
    return {text("The helper agent is being installed"), Qt::darkYellow, static_cast<int>(percent)};
  }
  StateView operator()(const qbdkr::HelperLaunching& /*state*/) const {
    return {text("The helper agent is starting"), Qt::darkYellow};
  }
  StateView operator()(const qbdkr::HelperRunning& state) const {
    return {text("The helper agent is running: version %1, process %2")
                .arg(shown(state.version))
                .arg(state.processID),
            QColor(0x2e, 0xa0, 0x43)};
  }
  StateView operator()(const qbdkr::HelperLost& /*state*/) const {
    return {text("The helper agent is lost"), Qt::red};
  }
  StateView operator()(const qbdkr::HelperPaused& /*state*/) const {
    return {text("The helper agent keeps ending, and is started later"), Qt::red};
  }
  StateView operator()(const qbdkr::HelperReplaced& /*state*/) const {
    return {text("The helper agent is replaced by a newer one"), Qt::darkYellow};
  }
  StateView operator()(const qbdkr::HelperClosed& /*state*/) const {
    return {text("The helper agent is switched off"), Qt::gray};
  }
};

// The window, and the delegate for the reports. Must outlive the event loop's last turn.
class Window : public QWidget,
               public qbdkr::QBHPWillHelperExitDelegate,
               public qbdkr::QBHPDidCheckServerOpenDelegate,
               public qbdkr::QBHPProductWillUpgradeDelegate {
 public:
  explicit Window(const acme::Transcript& transcript) : transcript_(transcript) {
    state_->setObjectName("state");
    log_->setObjectName("log");
    log_->setReadOnly(true);
    log_->setMaximumBlockCount(1000);
    progress_->hide();

    auto* calls = new QVBoxLayout;
    calls->addWidget(
        group(text("Helper agent"),
              {
                  button("start", text("Start"), [this] { start(); }),
                  button("stop", text("Stop"), [this] { posted("stopHelper", us().stopHelper()); }),
                  button("show", text("Show its window"),
                         [this] { posted("showHelper", us().showHelper()); }),
                  button("hide", text("Hide its window"),
                         [this] { posted("hideHelper", us().hideHelper()); }),
              }));
    calls->addWidget(
        group(text("Questions"),
              {
                  button("client", text("Who is this installation?"),
                         [this] { ask("clientIDFormHelper", us().askClientIDFormHelper()); }),
                  button("page", text("Which page without a network?"),
                         [this] { ask("netErrorPagePath", us().askNetErrorPagePath()); }),
                  button("suite", text("Which offer for the suite?"),
                         [this] { ask("unRegSuiteInfo", us().askUnRegSuiteInfo()); }),
              }));
    calls->addWidget(group(text("Product"), {button("upgrade", text("Upgrade …"), [this] {
                             posted("productUpgrade", us().productUpgrade());
                           })}));
    calls->addStretch();

    auto* state = new QHBoxLayout;
    state->addWidget(light_);
    state->addWidget(state_, 1);
    state->addWidget(progress_);
    auto* all = new QGridLayout(this);
    all->addLayout(state, 0, 0, 1, 2);
    all->addLayout(calls, 1, 0);
    all->addWidget(log_, 1, 1);
    all->setColumnStretch(1, 1);
    resize(760, 420);
  }

  // --- Reports, and the states of the helper agent; all on the main thread ---

  void willHelperExit() override {
    append("← willHelperExit");
    us().willHelperExit();  // the communicator acts on the reports
  }

  void didCheckServerOpen(bool open, const qbdkr::Error* error) override {
    append(open ? "← didCheckServerOpen: 1" : "← didCheckServerOpen: 0");
    us().didCheckServerOpen(open, error);
  }

  // The dialog runs the event loop inside this call, and all goes on behind it.
  void productWillUpgrade(const qbdkr::Error* /*error*/) override {
    append("← productWillUpgrade");
    QMessageBox question(QMessageBox::Question, text("Upgrade"),
                         text("A newer version is ready. Shall it be installed now?"),
                         QMessageBox::NoButton, this);
    auto* now = question.addButton(text("Install now"), QMessageBox::AcceptRole);
    auto* later = question.addButton(text("Later"), QMessageBox::RejectRole);
    now->setObjectName("now");
    later->setObjectName("later");
    question.exec();
    const bool ready = question.clickedButton() == now;
    posted(ready ? "productReadyToUpgrade 1" : "productReadyToUpgrade 0",
           us().productReadyToUpgrade(ready));
  }

  void showState(const qbdkr::HelperState& state) {
    const StateView view = std::visit(ViewOfState(), state);
    light_->setStyleSheet(
        QString("background: %1; border-radius: 6px; min-width: 12px; max-width: 12px; "
                "min-height: 12px; max-height: 12px")
            .arg(view.colour.name()));
    state_->setText(view.text);
    progress_->setVisible(view.progress >= 0);
    progress_->setValue(view.progress);
    if (view.progress < 0) append(view.text);
  }

 private:
  static QBHPHelperCommunicate& us() { return QBHPHelperCommunicate::share(); }

  QPushButton* button(const char* name, const QString& label, const std::function<void()>& call) {
    auto* made = new QPushButton(label, this);
    made->setObjectName(name);
    connect(made, &QPushButton::clicked, call);
    return made;
  }

  static QGroupBox* group(const QString& title, std::initializer_list<QPushButton*> buttons) {
    auto* made = new QGroupBox(title);
    made->setLayout(new QVBoxLayout);
    for (QPushButton* each : buttons) made->layout()->addWidget(each);
    return made;
  }

  void append(QString line) {
    line.replace(QDir::homePath(), "~");
    log_->appendPlainText(QTime::currentTime().toString("HH:mm:ss.zzz ") + line);
    transcript_.write(line.toStdString());
  }

  void start() {
    append("→ startHelper");
    qbdkr::QBHPHelper::share().startHelper();
  }

  void posted(const QString& name, qbdkr::OSErr status) {
    append(QString("→ %1: %2").arg(name).arg(status));
  }

  // The answer comes as a task of the main thread, which never waits for it.
  template <class Value>
  void ask(const QString& name, const qbdkr::Request<Value>& request) {
    constexpr std::chrono::seconds longest(5);
    append("→ " + name);
    request.start(
        qbdkr::RequestLimits::within(longest), [this, name](const qbdkr::Answer<Value>& answer) {
          append(QString("← %1: %2, %3").arg(name).arg(answer.status).arg(shown(answer.value)));
        });
  }

  const acme::Transcript& transcript_;
  QLabel* light_ = new QLabel(this);
  QLabel* state_ = new QLabel(text("The helper agent is being looked for"), this);
  QProgressBar* progress_ = new QProgressBar(this);
  QPlainTextEdit* log_ = new QPlainTextEdit(this);
};

}  // namespace

int main(int count, char** arguments) {
  QApplication app(count, arguments);
  acme::joinDesktop(app);
  QCommandLineParser parser;
  const QCommandLineOption drive("drive", text("Take commands from standard input."));
  parser.addHelpOption();
  parser.addOption(drive);
  parser.process(app);

  const acme::Transcript transcript(
      "desktop host " +
      qbdkr::Bundle::main().infoString(qbdkr::kCFBundleVersionKey).value_or("without version"));
  Window window(transcript);
  window.show();
  qbdkr::QBHPHelper::share();
  qbdkr::QBHPHelperControl::share().setHelperCtrlDelegate(&window);
  QBHPHelperCommunicate::share().setProductUpgradeDelegate(&window);
  QBHPHelperCommunicate::share().setHelperStateHandler(
      [&window](const qbdkr::HelperState& state) { window.showState(state); });
  if (parser.isSet(drive)) acme::driveByStandardInput(app, transcript);

  const int result = QApplication::exec();
  QBHPHelperCommunicate::share().setHelperStateHandler(nullptr);
  QBHPHelperCommunicate::share().setProductUpgradeDelegate(nullptr);
  qbdkr::QBHPHelperControl::share().setHelperCtrlDelegate(nullptr);
  // The helper agent does not hear a process that has ended.
  qbdkr::QBHPAppleEventSender::share().flush(std::chrono::steady_clock::now() +
                                             std::chrono::seconds(2));
  return result;
}
