#ifndef PRODUCT_INSTALL_LOCATIONS_H_
#define PRODUCT_INSTALL_LOCATIONS_H_

#include <string>
#include <vector>

/// One install layout of the product. A path that the layout does not have is empty.
struct ProductInfoStructure {
  /// A null pointer leaves its field empty. Note that the newer configuration file comes first
  /// here, and the older one first among the fields.
  ProductInfoStructure(const char* directoryText, const char* agcfngText, const char* agcfText,
                       const char* sdkLibraryText);

  std::string directory;       ///< base directory; its existence selects the layout
  std::string agcfPath;        ///< older agent configuration file
  std::string agcfngPath;      ///< newer agent configuration file
  std::string sdkLibraryPath;  ///< the SDK library
};

/// The known layouts, in order of preference. Built before main(), constant from then on.
extern std::vector<ProductInfoStructure> productInfoStructure;

/// Chooses the first layout of `table` whose base directory exists (symbolic links followed).
/// @param entry receives its address within `table`; untouched on failure.
/// @return 0, or 20 when there is none.
int GetDirectory(ProductInfoStructure*& entry, const std::vector<ProductInfoStructure>& table);

#endif  // PRODUCT_INSTALL_LOCATIONS_H_
