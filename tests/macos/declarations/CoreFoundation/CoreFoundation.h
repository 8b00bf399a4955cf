#ifndef TESTS_MACOS_DECLARATIONS_COREFOUNDATION_COREFOUNDATION_H_
#define TESTS_MACOS_DECLARATIONS_COREFOUNDATION_COREFOUNDATION_H_

using CFIndex = long;
using CFTypeID = unsigned long;
using CFTypeRef = const void*;
using CFArrayRef = const struct __CFArray*;
using CFDictionaryRef = const struct __CFDictionary*;
using CFErrorRef = struct __CFError*;
using CFStringRef = const struct __CFString*;
using CFURLRef = const struct __CFURL*;

extern "C" {

CFTypeRef CFRetain(CFTypeRef object);
void CFRelease(CFTypeRef object);
CFTypeID CFGetTypeID(CFTypeRef object);

CFTypeID CFArrayGetTypeID(void);
CFIndex CFArrayGetCount(CFArrayRef array);
const void* CFArrayGetValueAtIndex(CFArrayRef array, CFIndex index);

const void* CFDictionaryGetValue(CFDictionaryRef dictionary, const void* key);

CFTypeID CFStringGetTypeID(void);

}  // extern "C"

#endif  // TESTS_MACOS_DECLARATIONS_COREFOUNDATION_COREFOUNDATION_H_
