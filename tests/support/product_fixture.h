#ifndef TESTS_SUPPORT_PRODUCT_FIXTURE_H_
#define TESTS_SUPPORT_PRODUCT_FIXTURE_H_

#include <string>

#include "tests/support/tool_fixture.h"

namespace fake {

/// What a product answers, as JSON texts.
struct Answers {
  std::string status = "{}";    ///< the output of "Product.GetStatus"
  std::string identity = "{}";  ///< that of "kx.Product.Configuration.GetSkyloftIdentity"
};

/// A process that executes the file `name` of the product.
Process ServiceProcess(int processId, const std::string& name);

/// The service processes of the current product among others.
std::vector<Process> RunningServices();

/// Fixture of what looks at an installed product as a whole.
class ProductFixture : public ToolFixture {
 protected:
  /// Scripts the answers of an SDK that is first asked for the status and from then on for the
  /// identity, as detection does.
  void ScriptAnswers(const Answers& answers);

  /// Puts a healthy product of layout `number` into the world: directory, SDK, running services,
  /// newer configuration file.
  void InstallHealthy(int number, const Answers& answers);

  /// Puts a product of layout 1 into the world whose detection record is kTypicalRecord.
  void InstallTypical();
  static constexpr char kTypicalRecord[] = "1|C|G|E";
  /// The log of its detection; the SDK runs are the `batch`th and the next of the world.
  static Lines TypicalDetectionLog(std::uint64_t batch = 1);

  /// Newer and older configuration file of layout `number`.
  static std::string NewerFile(int number = 1);
  static std::string OlderFile(int number);

  /// The log of a detection that finds no product.
  static Lines AbsentLog();

  /// The log of the query for critical issues that is answered with `output`.
  static Lines CriticalIssuesLog(const std::string& output, const Lines& walkLines, int layout,
                                 std::uint64_t batch);

  /// The log of an identity query that is answered with `output`.
  /// @param searchLines what it logs while it searches the output
  static Lines IdentityLog(const std::string& output, const Lines& searchLines, int layout,
                           std::uint64_t batch);
};

/// Text of an agent configuration file.
std::string Configuration(const std::string& hardwareId, const std::string& companyId,
                          const std::string& group);

}  // namespace fake

#endif  // TESTS_SUPPORT_PRODUCT_FIXTURE_H_
