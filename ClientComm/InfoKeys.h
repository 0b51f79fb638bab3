#pragma once

#include <string_view>

// The keys of the host's information dictionary. Existing hosts have the misspelled ones;
// HostConfiguration says which of two spellings counts.
namespace qbdkr::infokey {
inline constexpr std::string_view helperBundleIdentifier = "Helper Bundle indentifiter";
inline constexpr std::string_view heleprAppName = "Helepr App name";
inline constexpr std::string_view helperAppName = "Helper App name";
inline constexpr std::string_view helperLoactionPath = "Helper loaction path";
inline constexpr std::string_view helperLocationPath = "Helper location path";
inline constexpr std::string_view helperMustBeInstalledCopy = "Helper must be installed copy";
inline constexpr std::string_view helperIsSupervised = "Helper is supervised";
inline constexpr std::string_view helperInOwnScope = "Helper in own scope";
inline constexpr std::string_view productID = "PID";
inline constexpr std::string_view tipsEnable = "TipsEnable";
inline constexpr std::string_view enableAD = "EnableAD";
}  // namespace qbdkr::infokey
