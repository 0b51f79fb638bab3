#include "ProductClient/SuiteAnswer.h"

#include <exception>
#include <string_view>
#include <vector>

#include <ClientComm/Exceptions.h>

namespace qbdkr {
namespace {

constexpr std::string_view fieldSeparator = "###";

std::vector<std::string_view> fieldsOf(std::string_view text) {
  std::vector<std::string_view> fields;
  for (;;) {
    const auto end = text.find(fieldSeparator);
    fields.push_back(text.substr(0, end));
    if (end == std::string_view::npos) return fields;
    text.remove_prefix(end + fieldSeparator.size());
  }
}

}  // namespace

QBHPSuiteInfo suiteInfoFrom(Text answer) {
  if (!answer) return QBHPSuiteInfo::initWithDate(std::nullopt, 0, 0);
  const auto fields = fieldsOf(*answer);
  if (fields.size() < 3) throw RangeException("a suite answer has three fields");
  return QBHPSuiteInfo::initWithDate(fields[0], intValue(fields[1]), intValue(fields[2]));
}

Answer<QBHPSuiteInfo> suiteAnswerOf(const Answer<String>& answer) {
  OSErr status = paramErr;
  try {
    return {answer.status, suiteInfoFrom(view(answer.value))};
  } catch (const RangeException&) {
    status = errAEEventNotHandled;
  } catch (const std::exception&) {  // no memory
  }
  return {status, QBHPSuiteInfo::initWithDate(std::nullopt, 0, 0)};
}

}  // namespace qbdkr
