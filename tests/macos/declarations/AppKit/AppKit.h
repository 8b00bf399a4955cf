#ifndef TESTS_MACOS_DECLARATIONS_APPKIT_APPKIT_H_
#define TESTS_MACOS_DECLARATIONS_APPKIT_APPKIT_H_

#import <Foundation/Foundation.h>

#ifdef KX_DECLARATIONS_MATCH
#include <type_traits>
static_assert(std::is_same<decltype([NSWorkspace sharedWorkspace]), NSWorkspace*>::value,
              "sharedWorkspace");
static_assert(std::is_same<decltype([[NSWorkspace sharedWorkspace] fullPathForApplication:@""]),
                           NSString*>::value,
              "fullPathForApplication:");
#else
@interface NSWorkspace : NSObject
+ (NSWorkspace*)sharedWorkspace;
- (NSString*)fullPathForApplication:(NSString*)application;
@end
#endif

#endif  // TESTS_MACOS_DECLARATIONS_APPKIT_APPKIT_H_
