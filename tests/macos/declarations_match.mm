// Compiled against a macOS SDK: fails where our declarations differ from its own.

#import <AppKit/AppKit.h>
#include <CoreFoundation/CoreFoundation.h>
#include <Security/Security.h>
#include <pthread.h>
#include <sys/stat.h>
#include <sys/sysctl.h>

#define KX_DECLARATIONS_MATCH
#include "tests/macos/declarations/AppKit/AppKit.h"
#include "tests/macos/declarations/CoreFoundation/CoreFoundation.h"
#include "tests/macos/declarations/Security/Security.h"
#include "tests/macos/declarations/pthread.h"
#include "tests/macos/declarations/sys/stat.h"
#include "tests/macos/declarations/sys/sysctl.h"
