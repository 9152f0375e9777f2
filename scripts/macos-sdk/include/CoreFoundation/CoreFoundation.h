// Darwin's CoreFoundation, as far as this project uses it: reference
// counting, dictionaries, URLs and the main bundle.
#ifndef ZQ_MACOS_SDK_COREFOUNDATION_COREFOUNDATION_H_
#define ZQ_MACOS_SDK_COREFOUNDATION_COREFOUNDATION_H_

#include <stdint.h>

extern "C" {

typedef unsigned char Boolean;
typedef uint8_t UInt8;
typedef signed long CFIndex;
typedef unsigned long CFTypeID;
typedef const void* CFTypeRef;
typedef const struct __CFAllocator* CFAllocatorRef;
typedef const struct __CFString* CFStringRef;
typedef const struct __CFDictionary* CFDictionaryRef;
typedef const struct __CFURL* CFURLRef;
typedef struct __CFBundle* CFBundleRef;

extern const CFAllocatorRef kCFAllocatorDefault;

void CFRelease(CFTypeRef object);
CFTypeID CFGetTypeID(CFTypeRef object);

const void* CFDictionaryGetValue(CFDictionaryRef dictionary, const void* key);

CFTypeID CFURLGetTypeID(void);
Boolean CFURLGetFileSystemRepresentation(CFURLRef url, Boolean resolveAgainstBase, UInt8* buffer, CFIndex length);

CFBundleRef CFBundleGetMainBundle(void);
CFURLRef CFBundleCopyBundleURL(CFBundleRef bundle);

}

#endif  // ZQ_MACOS_SDK_COREFOUNDATION_COREFOUNDATION_H_
