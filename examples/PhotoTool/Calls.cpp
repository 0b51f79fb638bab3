#include "Calls.h"

#include <array>
#include <exception>
#include <functional>

#include "ClientComm/QBHPConfig.h"
#include "ClientComm/QBHPHelperControl.h"
#include "ProductClient/QBHPHelper.h"
#include "ProductClient/QBHPHelperCommunicate.h"
#include "Transcript.h"

namespace photo {
namespace {

using qbdkr::OSErr;
using qbdkr::QBHPConfig;
using qbdkr::QBHPHelper;
using qbdkr::QBHPHelperCommunicate;
using qbdkr::QBHPHelperControl;
using qbdkr::String;
using qbdkr::Text;
using Arguments = std::vector<Text>;

struct Call {
  const char* name;
  const char* arguments;  // their names, for the list
  std::size_t count;
  std::string (*make)(const Arguments&);
};

std::string told(OSErr status) { return "status " + std::to_string(status); }
std::string told(bool flag) { return flag ? "yes" : "no"; }
std::string told(const String& text) { return acme::shown(qbdkr::view(text)); }
std::string told(const qbdkr::QBHPSuiteInfo& info) { return info.description(); }

bool flag(const Text& text) { return text == "1"; }

QBHPHelper& helper() { return QBHPHelper::share(); }
QBHPHelperCommunicate& communicator() { return QBHPHelperCommunicate::share(); }

const std::string done = "done";

constexpr std::array table{
    Call{"startHelper", "", 0, [](const Arguments&) { return helper().startHelper(), done; }},
    Call{"stopHelper", "", 0, [](const Arguments&) { return helper().stopHelper(), done; }},
    Call{"directUploadData", "", 0,
         [](const Arguments&) { return helper().directUploadData(), done; }},
    Call{"productCollectStatus", "", 0,
         [](const Arguments&) { return told(helper().productCollectStatus()); }},
    Call{"setProductCollectStatus", "STATUS", 1,
         [](const Arguments& a) { return helper().setProductCollectStatus(flag(a[0])), done; }},
    Call{"customStringDataCollect", "TARGET VALUE", 2,
         [](const Arguments& a) { return helper().customStringDataCollect(a[0], a[1]), done; }},
    Call{"autoCreatedIncreaseDataCollect", "TARGET KEY", 2,
         [](const Arguments& a) {
           return helper().autoCreatedIncreaseDataCollect(a[0], a[1]), done;
         }},
    Call{"commIncreaseDataCollect", "TARGET KEY", 2,
         [](const Arguments& a) { return helper().commIncreaseDataCollect(a[0], a[1]), done; }},
    Call{"setDataCollectPID", "PID", 1,
         [](const Arguments& a) { return helper().setDataCollectPID(a[0]), done; }},
    Call{"setTipsEnable", "ENABLE", 1,
         [](const Arguments& a) { return helper().setTipsEnable(flag(a[0])), done; }},
    Call{"netErrorPagePath", "", 0,
         [](const Arguments&) { return told(helper().netErrorPagePath()); }},
    Call{"unRegSuiteInfo", "", 0, [](const Arguments&) { return told(helper().unRegSuiteInfo()); }},
    Call{"regSuiteInfo", "", 0, [](const Arguments&) { return told(helper().regSuiteInfo()); }},
    Call{"uploadProductFile", "EMAIL PATH TITLE DESCRIPTION", 4,
         [](const Arguments& a) {
           return told(helper().uploadProductFile(a[0], a[1], a[2], a[3]));
         }},
    Call{"uploadUserFile", "EMAIL PATH TITLE DESCRIPTION", 4,
         [](const Arguments& a) {
           return told(communicator().uploadUserFile(a[0], a[1], a[2], a[3]));
         }},
    Call{"uploadLogByEmail", "EMAIL PATH TITLE DESCRIPTION", 4,
         [](const Arguments& a) {
           return told(communicator().uploadLogByEmail(a[0], a[1], a[2], a[3]));
         }},
    Call{"showHelper", "", 0, [](const Arguments&) { return told(communicator().showHelper()); }},
    Call{"hideHelper", "", 0, [](const Arguments&) { return told(communicator().hideHelper()); }},
    Call{"isAliveHelper", "", 0,
         [](const Arguments&) { return told(communicator().isAliveHelper()); }},
    Call{"autoRestartHelper", "", 0,
         [](const Arguments&) { return told(communicator().autoRestartHelper()); }},
    Call{"getDefaultHelperServerOpen", "", 0,
         [](const Arguments&) { return told(communicator().getDefaultHelperServerOpen()); }},
    Call{"clientIDFormHelper", "", 0,
         [](const Arguments&) { return told(communicator().clientIDFormHelper()); }},
    Call{"clientID", "", 0, [](const Arguments&) { return told(communicator().clientID()); }},
    Call{"productReadyToUpgrade", "READY", 1,
         [](const Arguments& a) { return told(communicator().productReadyToUpgrade(flag(a[0]))); }},
    Call{"productUpgrade", "", 0,
         [](const Arguments&) { return told(communicator().productUpgrade()); }},
    Call{"getProductUpgradeDelegate", "", 0,
         [](const Arguments&) { return communicator().getProductUpgradeDelegate(), done; }},
    Call{"checkForHeleprMessage", "", 0,
         [](const Arguments&) { return told(communicator().checkForHeleprMessage()); }},
    Call{
        "customerserviceByEmail", "EMAIL ATTACHMENT", 2,
        [](const Arguments& a) { return told(communicator().customerserviceByEmail(a[0], a[1])); }},
    Call{"firstStartPID", "", 0,
         [](const Arguments&) { return told(communicator().firstStartPID()); }},
    Call{"collectDataPID", "", 0,
         [](const Arguments&) { return told(communicator().collectDataPID()); }},
    Call{"initDataCollectionPath", "DIRECTORY", 1,
         [](const Arguments& a) { return communicator().initDataCollectionPath(a[0]), done; }},
    Call{"setEnableAD", "ENABLE", 1,
         [](const Arguments& a) { return communicator().setEnableAD(flag(a[0])), done; }},
    Call{"saveEnableADToPlistFile", "", 0,
         [](const Arguments&) {
           return told(QBHPHelperControl::share().saveEnableADToPlistFile());
         }},
    Call{"getVersionByBundlePath", "BUNDLE", 1,
         [](const Arguments& a) { return told(communicator().getVersionByBundlePath(a[0])); }},
    Call{"appPath", "DIRECTORY", 1,
         [](const Arguments& a) { return told(communicator().appPath(a[0])); }},
    Call{"brandName", "", 0, [](const Arguments&) { return told(QBHPConfig::brandName()); }},
    Call{"helperName", "", 0, [](const Arguments&) { return told(QBHPConfig::helperName()); }},
    Call{"helperPID", "", 0, [](const Arguments&) { return told(QBHPConfig::helperPID()); }},
};

}  // namespace

std::optional<std::string> call(const std::string& name,
                                const std::vector<std::string>& arguments) {
  for (const Call& entry : table) {
    if (name != entry.name || arguments.size() != entry.count) continue;
    Arguments texts;
    for (const std::string& argument : arguments) {
      texts.push_back(argument == "-" ? Text() : Text(argument));
    }
    try {
      return entry.make(texts);
    } catch (const std::exception& exception) {
      return std::string("exception: ") + exception.what();
    }
  }
  return std::nullopt;
}

std::string calls() {
  std::string list;
  for (const Call& entry : table) {
    list.append("  ").append(entry.name).append(" ").append(entry.arguments).append("\n");
  }
  return list;
}

}  // namespace photo
