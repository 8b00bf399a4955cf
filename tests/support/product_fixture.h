#ifndef TESTS_SUPPORT_PRODUCT_FIXTURE_H_
#define TESTS_SUPPORT_PRODUCT_FIXTURE_H_

#include <string>

#include "tests/support/tool_fixture.h"

namespace fake {

/// The outputs of a product's methods, as JSON texts.
struct Answers {
  std::string status = "{}";    ///< of "Product.GetStatus"
  std::string identity = "{}";  ///< of "kx.Product.Configuration.GetSkyloftIdentity"
};

/// A process that executes the file `name` of the product.
Process ServiceProcess(int processId, const std::string& name);

/// The service processes of the current product, with other processes among them.
std::vector<Process> RunningServices();

/// Fixture of tests that need a whole product.
class ProductFixture : public ToolFixture {
 protected:
  /// Scripts the answers of an SDK that is first asked for the status and from then on for the
  /// identity, as detection does.
  void ScriptAnswers(const Answers& answers);

  /// Puts a healthy product of layout `number` into the world: directory, SDK, running services,
  /// newer configuration file.
  void InstallHealthy(int number, const Answers& answers);

  /// Puts a product of layout 1 into the world whose detection record is "1|C|G|E".
  void InstallTypical();

  /// Newer and older configuration file of layout `number`.
  static std::string NewerFile(int number = 1);
  static std::string OlderFile(int number);

  /// The log of a detection that finds no product.
  static Lines AbsentLog();

  /// The log of the latest identity query, which was answered with `output`.
  /// @param searchLines what it logs while it searches the output
  static Lines IdentityLog(const std::string& output, const Lines& searchLines);
};

/// Text of an agent configuration file.
std::string Configuration(const std::string& hardwareId, const std::string& companyId,
                          const std::string& group);

}  // namespace fake

#endif  // TESTS_SUPPORT_PRODUCT_FIXTURE_H_
