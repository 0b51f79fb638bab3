// Compiled only by tests, with and without one of the mistakes below.
#include <ClientComm/QBHPAppEventBase.h>
#include <ClientComm/Selector.h>

namespace qbdkr {

class Service : public QBHPAppEventBase {
 public:
  OSErr send(Text first, Text second);
  String query() const;
  std::string_view className() const override { return "Service"; }

 protected:
  std::span<const Method> methods() const override { return {}; }
};

inline constexpr auto kSend = selector<&Service::send>("send:second:");
inline constexpr auto kQuery = selector<&Service::query>("query");
inline constexpr auto kUnnamed = selector<&Service::send>("send::");

#if defined(TOO_FEW_COLONS)
inline constexpr auto kMistake = selector<&Service::send>("send:");
#elif defined(TOO_MANY_COLONS)
inline constexpr auto kMistake = selector<&Service::query>("query:");
#elif defined(WRONG_TABLE_ENTRY)
inline constexpr auto kMistake = method<&Service::send>(kQuery);
#endif

}  // namespace qbdkr
