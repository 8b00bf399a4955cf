#include "product/install_locations.h"

#include <cstdint>

#include "app/error_codes.h"
#include "platform/files.h"

namespace {

/// The directory bit of a mode's file-type field. The tool tests only this bit, which block
/// devices and sockets also have.
constexpr std::uint32_t kDirectoryBit = 0x4000;

void AssignUnlessNull(std::string& field, const char* text) {
  if (text != nullptr) field = text;
}

}  // namespace

ProductInfoStructure::ProductInfoStructure(const char* directoryText, const char* agcfngText,
                                           const char* agcfText, const char* sdkLibraryText) {
  AssignUnlessNull(directory, directoryText);
  AssignUnlessNull(agcfngPath, agcfngText);
  AssignUnlessNull(agcfPath, agcfText);
  AssignUnlessNull(sdkLibraryPath, sdkLibraryText);
}

std::vector<ProductInfoStructure> productInfoStructure = {
    {"/Library/Corvane/XQP/product/lib", "/Library/Corvane/XQP/settings/agcfng/agcfng.jso", nullptr,
     "/Library/Corvane/XQP/product/lib/agentsdk.dylib"},
    {"/Library/Corvane/XQP/enterprise.bundle",
     "/Library/Corvane/XQP/enterprise.bundle/agcfng/agcfng.jso",
     "/Library/Corvane/XQP/enterprise.bundle/agcf.jso",
     "/Library/Corvane/XQP/enterprise.bundle/agentsdk.dylib"},
    {"/Library/Corvane/XQP/enterprise", "/Library/Corvane/XQP/enterprise/agcfng/agcfng.jso",
     "/Library/Corvane/XQP/enterprise/agcf.jso", "/Library/Corvane/XQP/enterprise/agentsdk.dylib"},
};

int GetDirectory(ProductInfoStructure*& entry, const std::vector<ProductInfoStructure>& table) {
  for (const ProductInfoStructure& candidate : table) {
    std::uint32_t mode = 0;
    if (platform::FileMode(candidate.directory, mode) == 0 && (mode & kDirectoryBit) != 0) {
      entry = const_cast<ProductInfoStructure*>(&candidate);
      return kSuccess;
    }
  }
  return kENOTDIR;
}
