#ifndef INSTALL_ATTACH_OUTPUT_H_
#define INSTALL_ATTACH_OUTPUT_H_

#include <optional>
#include <string>

#include "platform/property_list.h"

namespace install {

/// Where the disk-image tool mounted an image: the first "mount-point" text of a dictionary within
/// one of the top dictionary's arrays ("system-entities"). Values of other kinds are passed over.
/// @param output the property list that the tool wrote when it attached the image
std::optional<std::string> FindMountPoint(const platform::PropertyListValue& output);

/// The "dev-entry" text of the top dictionary itself, which the disk-image tool does not usually
/// write there.
std::optional<std::string> FindDevice(const platform::PropertyListValue& output);

}  // namespace install

#endif  // INSTALL_ATTACH_OUTPUT_H_
