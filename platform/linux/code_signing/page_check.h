#ifndef PLATFORM_LINUX_CODE_SIGNING_PAGE_CHECK_H_
#define PLATFORM_LINUX_CODE_SIGNING_PAGE_CHECK_H_

#include <cstdint>

#include "platform/linux/code_signing/code_directory_set.h"
#include "platform/linux/code_signing/random_access_file.h"

namespace platform::code_signing {

/// Hashes the code that starts at `start` of a file and compares every page with the hashes of all
/// directories of a known type, on all processors. Page size and code limit are those of the best
/// directory. The memory it takes does not depend on the file.
/// @return kErrSecCSSignatureFailed for a page that differs or is not fully there.
OsStatus CheckPages(const RandomAccessFile& file, std::uint64_t start,
                    const CodeDirectorySet& directories);

}  // namespace platform::code_signing

#endif  // PLATFORM_LINUX_CODE_SIGNING_PAGE_CHECK_H_
