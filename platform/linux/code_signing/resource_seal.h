#ifndef PLATFORM_LINUX_CODE_SIGNING_RESOURCE_SEAL_H_
#define PLATFORM_LINUX_CODE_SIGNING_RESOURCE_SEAL_H_

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "platform/linux/code_signing/check_context.h"
#include "platform/linux/code_signing/digest.h"
#include "platform/linux/code_signing/disk_representation.h"
#include "platform/linux/code_signing/requirement.h"

namespace platform::code_signing {

/// Validates the code at `path` with its resources, and evaluates `requirement` on each slice.
/// @return the first failure; kErrSecCSReqFailed when the requirement is not met.
using NestedCodeCheck =
    std::function<OsStatus(const std::string& path, const Requirement& requirement)>;

/// The input of the resource check: a bundle whose signature, special slots and pages are valid.
struct ResourceSeal {
  const DiskRepresentation& code;

  /// The bytes of CodeResources, which match the CodeDirectory.
  std::string codeResources;

  /// The hash types of all the code's CodeDirectories, ascending. Never empty.
  std::vector<HashType> hashTypes;

  NestedCodeCheck checkNestedCode;
};

/// Validates everything below the code's resource root against its CodeResources (resources.cpp of
/// Apple's open Security project). For code without a resource root, checks that none is sealed.
/// Stricter than the platform: an entry that cannot be examined is an error, and so is a sealed
/// link that leaves the bundle.
/// @throws BudgetExceeded
OsStatus CheckResources(ResourceSeal seal, CheckContext& context);

}  // namespace platform::code_signing

#endif  // PLATFORM_LINUX_CODE_SIGNING_RESOURCE_SEAL_H_
