#ifndef PLATFORM_LINUX_CODE_SIGNING_BER_EXTENT_H_
#define PLATFORM_LINUX_CODE_SIGNING_BER_EXTENT_H_

#include <string_view>

namespace platform::code_signing {

enum class BerExtent {
  kComplete,   ///< one whole value, whatever follows it
  kTruncated,  ///< the bytes end within the value, or there are none
  kMalformed,  ///< not BER, or nested too deeply
};

/// Walks the tags and lengths of one BER value (ITU-T X.690), of definite or indefinite length,
/// without interpreting contents.
BerExtent FindBerExtent(std::string_view bytes);

}  // namespace platform::code_signing

#endif  // PLATFORM_LINUX_CODE_SIGNING_BER_EXTENT_H_
