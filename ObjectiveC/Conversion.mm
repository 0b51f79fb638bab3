#import "ObjectiveC/Conversion.h"

#include <cstdlib>
#include <variant>

#if __has_feature(objc_arc)
extern "C" void* objc_autoreleasePoolPush(void);
extern "C" void objc_autoreleasePoolPop(void*);
#endif

namespace qbdkr::objc {
namespace {

std::string utf8Of(NSString* string) {
  NSData* const data = [string dataUsingEncoding:NSUTF8StringEncoding];
  if (data == nil) return "\xff";
  return {static_cast<const char*>([data bytes]), [data length]};
}

// The object of a value.
struct Foundation {
  id operator()(const std::string& text) const { return stringOf(std::string_view(text)); }
  id operator()(bool flag) const { return [NSNumber numberWithBool:flag]; }
  id operator()(const PropertyList::Integer& number) const {
    return number.negative
               ? [NSNumber numberWithLongLong:static_cast<long long>(0 - number.magnitude)]
               : [NSNumber numberWithUnsignedLongLong:number.magnitude];
  }
  id operator()(double number) const { return [NSNumber numberWithDouble:number]; }
  id operator()(const PropertyList::Date& date) const {
    return [NSDate dateWithTimeIntervalSinceReferenceDate:date.seconds];
  }
  id operator()(const PropertyList::Data& data) const {
    return [NSData dataWithBytes:data.bytes.data() length:data.bytes.size()];
  }
  id operator()(const PropertyList::Array& array) const {
    NSMutableArray* const objects = [NSMutableArray array];
    for (const PropertyList& item : array) [objects addObject:std::visit(*this, item.value())];
    return objects;
  }
  id operator()(const PropertyList::Dictionary& dictionary) const {
    NSMutableDictionary* const objects = [NSMutableDictionary dictionary];
    for (const auto& entry : dictionary) {
      [objects setObject:std::visit(*this, entry.second.value())
                  forKey:stringOf(std::string_view(entry.first))];
    }
    return objects;
  }
};

}  // namespace

TextOf::TextOf(NSString* string) {
  if (string != nil) text_ = utf8Of(string);
}

TextsOf::TextsOf(NSArray* strings) {
  for (NSUInteger i = 0; i < [strings count]; ++i)
    texts_.push_back(utf8Of([strings objectAtIndex:i]));
  views_.assign(texts_.begin(), texts_.end());
}

NSString* stringOf(std::string_view text) {
  return AUTORELEASE([[NSString alloc] initWithBytes:text.data()
                                              length:text.size()
                                            encoding:NSUTF8StringEncoding]);
}

NSString* stringOf(const Text& text) { return text ? stringOf(*text) : nil; }

NSString* stringOf(const String& text) { return stringOf(view(text)); }

NSString* stringOf(std::u16string_view text) {
  return [NSString stringWithCharacters:reinterpret_cast<const unichar*>(text.data())
                                 length:text.size()];
}

std::u16string utf16Of(NSString* string) {
  std::u16string text([string length], u'\0');
  [string getCharacters:reinterpret_cast<unichar*>(text.data()) range:NSMakeRange(0, text.size())];
  return text;
}

NSDictionary* dictionaryOf(const PropertyList::Dictionary& dictionary) {
  return Foundation()(dictionary);
}

NSDictionary* dictionaryOf(const std::map<std::string, std::string>& texts) {
  NSMutableDictionary* const strings = [NSMutableDictionary dictionary];
  for (const auto& entry : texts) {
    [strings setObject:stringOf(std::string_view(entry.second))
                forKey:stringOf(std::string_view(entry.first))];
  }
  return strings;
}

NSError* errorOf(const Error& error) {
  return [NSError errorWithDomain:stringOf(std::string_view(error.domain))
                             code:error.code
                         userInfo:dictionaryOf(error.userInfo)];
}

::QBHPSuiteInfo* suiteInfoOf(const QBHPSuiteInfo& info) {
  return AUTORELEASE([[::QBHPSuiteInfo alloc] initWithDate:stringOf(info.URL())
                                                     width:info.width()
                                                    height:info.height()]);
}

void raise(NSString* name, const std::exception& exception) {
  [[NSException exceptionWithName:name
                           reason:stringOf(std::string_view(exception.what()))
                         userInfo:nil] raise];
  std::abort();
}

#if __has_feature(objc_arc)
Pool::Pool() : pool_(objc_autoreleasePoolPush()) {}
Pool::~Pool() { objc_autoreleasePoolPop(pool_); }
#else
Pool::Pool() : pool_([NSAutoreleasePool new]) {}
Pool::~Pool() { [static_cast<NSAutoreleasePool*>(pool_) drain]; }
#endif

}  // namespace qbdkr::objc
