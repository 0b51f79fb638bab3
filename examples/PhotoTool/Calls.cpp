#include "Calls.h"

#include <array>
#include <exception>
#include <type_traits>
#include <utility>

#include <ClientComm/QBHPConfig.h>
#include <ClientComm/QBHPGetDataByHelper.h>
#include <ClientComm/QBHPHelperControl.h>
#include <QBDKRProductClient/QBHPHelper.h>
#include <QBDKRProductClient/QBHPHelperCommunicate.h>

#include "Transcript.h"

namespace photo {
namespace {

using qbdkr::OSErr;
using qbdkr::QBHPConfig;
using qbdkr::String;
using qbdkr::Text;
using Arguments = std::vector<Text>;
using Communicator = qbdkr::QBHPHelperCommunicate;
using Control = qbdkr::QBHPHelperControl;
using Data = qbdkr::QBHPGetDataByHelper;
using Helper = qbdkr::QBHPHelper;

// Return a result as text.
std::string told(OSErr status) { return "status " + std::to_string(status); }
std::string told(bool flag) { return flag ? "yes" : "no"; }
std::string told(const String& text) { return acme::shown(qbdkr::view(text)); }
std::string told(const qbdkr::QBHPSuiteInfo& info) { return info.description(); }
std::string told(const qbdkr::Diagnosis& diagnosis) { return diagnosis.text(); }
std::string told(const qbdkr::QBHPProductUpgradeCallBackDelegate* delegate) {
  return delegate == nullptr ? "none" : "a delegate";
}

// Makes an argument from its text.
template <class Parameter>
Parameter argument(const Text& text) {
  if constexpr (std::is_same_v<Parameter, bool>) {
    return text == "1";
  } else if constexpr (std::is_same_v<Parameter, OSErr>) {
    return static_cast<OSErr>(qbdkr::intValue(text.value_or("")));
  } else {
    return text;
  }
}

template <class Function>
std::string resultOf(Function function) {
  if constexpr (std::is_void_v<decltype(function())>) {
    function();
    return "done";
  } else {
    return told(function());
  }
}

// Calls a function of the framework, with arguments of any types that it takes.
template <class Function>
struct Signature;

template <class Result>
struct Signature<Result (*)()> {
  static constexpr std::size_t count = 0;
  static std::string call(Result (*function)(), const Arguments& /*none*/) {
    return resultOf(function);
  }
};

template <class Member, class Class, class... Parameters>
struct MemberSignature {
  static constexpr std::size_t count = sizeof...(Parameters);
  static std::string call(Member member, const Arguments& arguments) {
    return [&]<std::size_t... I>(std::index_sequence<I...>) {
      return resultOf(
          [&] { return (Class::share().*member)(argument<Parameters>(arguments[I])...); });
    }
    (std::make_index_sequence<count>());
  }
};

template <class Class, class Result, class... Parameters>
struct Signature<Result (Class::*)(Parameters...)>
    : MemberSignature<Result (Class::*)(Parameters...), Class, Parameters...> {};

template <class Class, class Result, class... Parameters>
struct Signature<Result (Class::*)(Parameters...) const>
    : MemberSignature<Result (Class::*)(Parameters...) const, Class, Parameters...> {};

struct Call {
  const char* name;
  const char* arguments;  // their names, for the list
  std::size_t count;
  std::string (*make)(const Arguments&);
};

template <auto Function>
consteval Call call(const char* name, const char* arguments = "") {
  using Form = Signature<decltype(Function)>;
  return {name, arguments, Form::count,
          [](const Arguments& given) { return Form::call(Function, given); }};
}

constexpr std::array table{
    // The facade.
    call<&Helper::startHelper>("startHelper"),
    call<&Helper::stopHelper>("stopHelper"),
    call<&Helper::directUploadData>("directUploadData"),
    call<&Helper::productCollectStatus>("productCollectStatus"),
    call<&Helper::setProductCollectStatus>("setProductCollectStatus", "STATUS"),
    call<&Helper::customStringDataCollect>("customStringDataCollect", "TARGET VALUE"),
    call<&Helper::autoCreatedIncreaseDataCollect>("autoCreatedIncreaseDataCollect", "TARGET KEY"),
    call<&Helper::commIncreaseDataCollect>("commIncreaseDataCollect", "TARGET KEY"),
    call<&Helper::setDataCollectPID>("setDataCollectPID", "PID"),
    call<&Helper::setTipsEnable>("setTipsEnable", "ENABLE"),
    call<&Helper::netErrorPagePath>("netErrorPagePath"),
    call<&Helper::unRegSuiteInfo>("unRegSuiteInfo"),
    call<&Helper::regSuiteInfo>("regSuiteInfo"),
    call<&Helper::uploadProductFile>("uploadProductFile", "EMAIL PATH TITLE DESCRIPTION"),
    // The communicator's further calls.
    call<&Communicator::processHelper>("processHelper"),
    call<&Communicator::extractHelper>("extractHelper"),
    call<&Communicator::launchHelepr>("launchHelepr"),
    call<&Communicator::autoRestartHelper>("autoRestartHelper"),
    call<&Communicator::restartHelperInThread>("restartHelperInThread"),
    call<&Communicator::isHelperSeverNotOpen>("isHelperSeverNotOpen", "STATUS"),
    call<&Communicator::getDefaultHelperServerOpen>("getDefaultHelperServerOpen"),
    call<&Communicator::isAliveHelper>("isAliveHelper"),
    call<&Communicator::showHelper>("showHelper"),
    call<&Communicator::hideHelper>("hideHelper"),
    call<&Communicator::clientIDFormHelper>("clientIDFormHelper"),
    call<&Communicator::clientID>("clientID"),
    call<&Communicator::productUpgrade>("productUpgrade"),
    call<&Communicator::productReadyToUpgrade>("productReadyToUpgrade", "READY"),
    call<&Communicator::getProductUpgradeDelegate>("getProductUpgradeDelegate"),
    call<&Communicator::uploadUserFile>("uploadUserFile", "EMAIL PATH TITLE DESCRIPTION"),
    call<&Communicator::uploadLogByEmail>("uploadLogByEmail", "EMAIL PATH TITLE DESCRIPTION"),
    call<&Communicator::customerserviceByEmail>("customerserviceByEmail", "EMAIL ATTACHMENT"),
    call<&Communicator::checkForHeleprMessage>("checkForHeleprMessage"),
    call<&Communicator::synthesizeUserDefault>("synthesizeUserDefault"),
    call<&Communicator::firstStartPID>("firstStartPID"),
    call<&Communicator::collectDataPID>("collectDataPID"),
    call<&Communicator::initDataCollectionPath>("initDataCollectionPath", "DIRECTORY"),
    call<&Communicator::setEnableAD>("setEnableAD", "ENABLE"),
    call<&Communicator::saveEnableAD>("saveEnableAD"),
    call<&Communicator::saveTipsEnable>("saveTipsEnable"),
    call<&Communicator::saveEnableADToPlistFile>("saveEnableADToPlistFile", "ENABLE"),
    call<&Communicator::saveEnableADToStringsFile>("saveEnableADToStringsFile", "ENABLE"),
    call<&Communicator::saveTipsEnableToPlistFile>("saveTipsEnableToPlistFile", "ENABLE"),
    call<&Communicator::saveTipsEnableTostringsFile>("saveTipsEnableTostringsFile", "ENABLE"),
    call<&Communicator::searchCurrentStringsFilePath>("searchCurrentStringsFilePath", "BUNDLE"),
    call<&Communicator::searchPlistFilePath>("searchPlistFilePath", "BUNDLE"),
    call<&Communicator::getVersionByBundlePath>("getVersionByBundlePath", "BUNDLE"),
    call<&Communicator::appPath>("appPath", "DIRECTORY"),
    call<&Communicator::diagnose>("diagnose"),
    // Further calls of the framework.
    call<&Control::exitHelper>("exitHelper", "PID VERSION"),
    call<&Control::saveEnableADToPlistFile>("saveEnableADToPlistFile"),
    call<&Data::isNotFirstStart>("isNotFirstStart"),
    call<&QBHPConfig::brandName>("brandName"),
    call<&QBHPConfig::helperName>("helperName"),
    call<&QBHPConfig::helperPID>("helperPID"),
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
    list.append("  ").append(entry.name);
    if (*entry.arguments != '\0') list.append(" ").append(entry.arguments);
    list.append("\n");
  }
  return list;
}

}  // namespace photo
