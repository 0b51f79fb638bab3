#pragma once

#import <Foundation/Foundation.h>
#import <QBDKRProductClientObjC/QBHPSuiteInfo.h>

#include <map>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include <ClientComm/Exceptions.h>
#include <ClientComm/PropertyList.h>
#include <ClientComm/QBHPHelperError.h>
#include <ClientComm/QBHPSuiteInfo.h>
#include <ClientComm/TextValue.h>

// GNUstep's names for counting references, on systems where the compiler counts them.
#ifndef RETAIN
#define RETAIN(object) (object)
#define RELEASE(object)
#define AUTORELEASE(object) (object)
#define DEALLOC
#endif

// Values of C++ and Foundation. nil is absent, and @"" is empty.
namespace qbdkr::objc {

// An argument of a call. A string that is no UTF-16 becomes a text that is no UTF-8, which every
// transport refuses.
class TextOf {
 public:
  explicit TextOf(NSString* string);
  operator Text() const { return view(text_); }
  [[nodiscard]] std::string orEmpty() const { return text_.value_or(""); }

 private:
  String text_;
};

// The arguments of an event.
class TextsOf {
 public:
  explicit TextsOf(NSArray* strings);
  operator std::span<const std::string_view>() const { return views_; }

 private:
  std::vector<std::string> texts_;
  std::vector<std::string_view> views_;
};

NSString* stringOf(std::string_view text);
NSString* stringOf(const Text& text);
NSString* stringOf(const String& text);
NSString* stringOf(std::u16string_view text);
std::u16string utf16Of(NSString* string);
NSDictionary* dictionaryOf(const PropertyList::Dictionary& dictionary);
NSDictionary* dictionaryOf(const std::map<std::string, std::string>& texts);
NSError* errorOf(const Error& error);
::QBHPSuiteInfo* suiteInfoOf(const QBHPSuiteInfo& info);

// Raises an exception of Foundation with an exception's text.
[[noreturn]] void raise(NSString* name, const std::exception& exception);

// Makes a call, and raises what it throws.
template <class Call>
auto raising(Call call) -> decltype(call()) {
  try {
    return call();
  } catch (const RangeException& exception) {
    raise(NSRangeException, exception);
  } catch (const InvalidArgumentException& exception) {
    raise(NSInvalidArgumentException, exception);
  } catch (const std::exception& exception) {
    raise(NSGenericException, exception);
  }
}

// Frees what is autoreleased in its lifetime: threads of the framework have no pool of their own.
class Pool {
 public:
  Pool();
  Pool(const Pool&) = delete;
  Pool& operator=(const Pool&) = delete;
  ~Pool();

 private:
  void* pool_;
};

}  // namespace qbdkr::objc
