// Repeats every operation of the tool. Each time a different allocation, or a different call to the
// platform, fails. The fixture and the fakes detect everything that is not released.

#include <algorithm>
#include <cerrno>
#include <functional>
#include <memory>
#include <new>
#include <set>
#include <string>
#include <vector>

#include "app/error_codes.h"
#include "tests/support/allocation_failure.h"
#include "tests/support/product_fixture.h"
#include "tests/support/property_list_builder.h"

namespace {

using Codes = std::set<int>;

constexpr char kImage[] = "/downloads/setup.dmg";
constexpr char kPackage[] = "/downloads/Setup.pkg";
constexpr char kMountPoint[] = "/volume";
constexpr char kApplication[] = "/downloads/Setup.app";
constexpr char kApplicationExecutable[] = "/downloads/Setup.app/Contents/MacOS/Setup";
constexpr char kLogDirectory[] = "/Library/Application Support/Halvard/Logs";
constexpr char kSummary[] = R"(<a><ScanSummary startTime="100" duration="5000"/></a>)";

int GetLinks(std::string& result, const char*, const char*, const char*, bool) {
  const fake::AllocationFailure::Pause pause;
  result = "https://console.example/a-link-that-is-long-enough-to-be-allocated";
  return kSuccess;
}

/// A fresh world in which one operation can run once.
class OperationRun : public fake::ProductFixture {
 public:
  void TestBody() override {}

  // What the operations need from the world.

  void PrepareVersion() {}

  void PrepareQuery() {
    sdk.Install();
    sdk.answers = {fake::Answer(
        R"({"LastUpdateTime":1700000000,)"
        R"("Locations":{"Product":{"Version":"a version that is long enough to be allocated",)"
        R"("update":{"error":5,"time":1,"lastSucceededTime":2}},)"
        R"("a location with a long name":{"update":{"error":1,"lastSucceededTime":2}}},)"
        R"("Alerts":{"an alert with a long name":{"severity":"critical"}},)"
        R"("Features":[{"id":"a feature with a long name","isFunctioning":true},)"
        R"({"id":"another feature with a long name"}]})")};
  }

  void PrepareUpdate() {
    sdk.Install();
    sdk.answers = {fake::Answer("{}", "Update")};
  }

  void PrepareScan() {
    sdk.Install();
    sdk.answers = {fake::Answer("{}", "FileScan.OnDemand")};
  }

  void PrepareWatchedScan() {
    sdk.Install();
    world.whenWaiting = {[this] { sdk.RaiseAndSettle("FileScan.OnDemand.ScanStarted"); }};
  }

  void PrepareScanReport() {
    world.AddDirectory(kLogDirectory);
    world.AddFile(std::string(kLogDirectory) + "/1_Full Scan.xml", kSummary);
    world.AddFile(std::string(kLogDirectory) + "/1_Quick Scan.xml", kSummary);
  }

  void PrepareLinks() {
    world.AddFile("libsl.dylib");
    world.signatures["libsl.dylib"] = fake::Signature::Vendors();
    world.libraries["./libsl.dylib"] = {
        {"GetInstallationLinks", reinterpret_cast<void*>(GetLinks)}};
  }

  void PrepareDetection() { InstallTypical(); }

  void PreparePackage() {
    world.AddFile(kPackage, "package");
    world.AddFile("/downloads/installer.xml");
    world.programs["/usr/sbin/installer"] = {};
  }

  void PreparePackageOverProduct() {
    InstallTypical();
    PreparePackage();
  }

  void PrepareImage() {
    world.AddFile(kImage, "image");
    world.programs["/usr/bin/hdiutil"].effect = [this](const platform::Task& task) {
      const fake::AllocationFailure::Pause pause;
      if (task.arguments.front() != "attach") return;
      world.AddFile(std::string(kMountPoint) + "/Setup.pkg", "package");
      world.AddFile(std::string(kMountPoint) + "/installer.xml");
      world.AddDirectory(std::string(kMountPoint) + "/Setup.app");
      world.propertyLists[task.standardOutputPath] =
          fake::Dictionary({{"system-entities", fake::Array({fake::Mounted(kMountPoint)})},
                            {"dev-entry", fake::Text("/dev/disk9")}});
    };
    world.programs["/usr/sbin/installer"] = {};
  }

  void PrepareApplicationImage() {
    PrepareImage();
    world.signatures[kApplication] = fake::Signature::Vendors();
    world.applicationExecutables[kApplication] = kApplicationExecutable;
    world.programs[kApplicationExecutable] = {};
  }

  /// Runs the option with the log on. Sets `escaped` when std::bad_alloc left it.
  int Run(const std::vector<std::string>& words) {
    KXTool& tool = MakeTool(words);
    Log();
    if (armBefore_) armBefore_();
    std::string result;
    int code = 0;
    try {
      code = tool.Run(result);
    } catch (const std::bad_alloc&) {
      escaped = true;
    }
    return code;
  }

  /// `arm` is called just before the operation runs.
  void Before(std::function<void()> arm) { armBefore_ = std::move(arm); }

  bool HasOutputFile() const {
    return std::any_of(world.files.begin(), world.files.end(), [](const auto& file) {
      return file.first.find("KXToolInstall_") != std::string::npos;
    });
  }

  fake::World& TheWorld() const { return world; }

  bool escaped = false;

 private:
  std::function<void()> armBefore_;
};

struct Operation {
  const char* name;
  std::vector<std::string> words;
  void (OperationRun::*prepare)();
  int code;  ///< when nothing fails
  /// Whether the code stays the same when something fails: detection answers with its record.
  bool isTolerant = false;
};

const std::vector<Operation>& Operations() {
  static const auto& operations = *new std::vector<Operation>{
      {"Version", {"-getVersion"}, &OperationRun::PrepareVersion, kSuccess},
      {"UpdateErrors", {"-checkForUpdateErrors"}, &OperationRun::PrepareQuery, kSuccess},
      {"UpdateStatus", {"-getUpdateStatus", "Product"}, &OperationRun::PrepareQuery, kSuccess},
      {"CriticalIssues", {"-hasCriticalIssues"}, &OperationRun::PrepareQuery, kSuccess},
      {"IsUpToDate", {"-isUpToDate"}, &OperationRun::PrepareQuery, kSuccess},
      {"UpdateLocations", {"-getUpdateLocations"}, &OperationRun::PrepareQuery, kSuccess},
      {"ProductVersion", {"-getProductVersion"}, &OperationRun::PrepareQuery, kSuccess},
      {"LastUpdate", {"-getLastUpdate"}, &OperationRun::PrepareQuery, kSuccess},
      {"FeatureStatus", {"-getFeatureStatus"}, &OperationRun::PrepareQuery, kSuccess},
      {"StartUpdate", {"-startUpdate"}, &OperationRun::PrepareUpdate, kSuccess},
      {"FullScan", {"-startFullScan"}, &OperationRun::PrepareScan, kSuccess},
      {"QuickScan", {"-startQuickScan"}, &OperationRun::PrepareScan, kSuccess},
      {"WatchedFullScan", {"-startFullScan", "5"}, &OperationRun::PrepareWatchedScan, kSuccess},
      {"WatchedQuickScan", {"-startQuickScan", "5"}, &OperationRun::PrepareWatchedScan, kSuccess},
      {"LastSystemScan", {"-getLastSystemScan"}, &OperationRun::PrepareScanReport, kSuccess},
      {"InstallationLink",
       {"-getInstallationLink", "-slUrl", "u", "-apiKey", "k", "-packageName", "p"},
       &OperationRun::PrepareLinks,
       kSuccess},
      {"Detect", {"-detect"}, &OperationRun::PrepareDetection, kEBUSY, true},
      {"PackageOverProduct",
       {"-runInstaller", kPackage},
       &OperationRun::PreparePackageOverProduct,
       kEBUSY,
       true},
      {"Package", {"-runInstaller", kPackage}, &OperationRun::PreparePackage, kSuccess},
      {"PackageImage", {"-runInstaller", kImage}, &OperationRun::PrepareImage, kSuccess},
      {"SetupDownloader",
       {"-runSetupDownloader", kImage},
       &OperationRun::PrepareApplicationImage,
       kSuccess},
  };
  return operations;
}

void PrintTo(const Operation& operation, std::ostream* stream) { *stream << operation.name; }

class SweepTest : public testing::TestWithParam<Operation> {};

INSTANTIATE_TEST_SUITE_P(Operations, SweepTest, testing::ValuesIn(Operations()),
                         [](const auto& operation) { return operation.param.name; });

/// Runs the operation once in a fresh world. `arm` is called for that world just before.
std::unique_ptr<OperationRun> RunOnce(const Operation& operation, int& code,
                                      const std::function<void(OperationRun&)>& arm) {
  auto run = std::make_unique<OperationRun>();
  (*run.*operation.prepare)();
  run->Before([&arm, &run] { arm(*run); });
  code = run->Run(operation.words);
  return run;
}

TEST_P(SweepTest, NothingFails) {
  int code = -1;
  RunOnce(GetParam(), code, [](OperationRun&) {});
  EXPECT_EQ(code, GetParam().code);
}

// Whichever allocation fails, the operation ends in one of these ways: with an exception that
// main() does not catch, with the guard of a query, or with a result that did not need the memory.
// Allocations of the SDK's callbacks, which must not throw, are in callbacks_test.cc.
TEST_P(SweepTest, EveryAllocationFailsOnce) {
  const Operation& operation = GetParam();
  std::size_t number = 0;
  for (bool hasFailed = true; hasFailed;) {
    ++number;
    int code = -1;
    const auto run =
        RunOnce(operation, code, [number](OperationRun&) { fake::AllocationFailure::Arm(number); });
    hasFailed = fake::AllocationFailure::Disarm();
    if (run->escaped) continue;
    EXPECT_TRUE(code == operation.code || code == kESRCH) << number << ": " << code;
  }
  EXPECT_GT(number, 5U);
  RecordProperty("allocations", static_cast<int>(number - 1));
}

/// The codes with which operations can end when this call to the platform fails.
struct FallibleCall {
  const char* name;
  Codes codes;
};

// 0 means that the failure may have no effect.
const std::vector<FallibleCall>& FallibleCalls() {
  static const auto& calls = *new std::vector<FallibleCall>{
      {"MainBundleText", {kENOENT}},
      {"ApplicationExecutable", {kENOENT}},
      {"CreateStaticCode", {fake::kFailedCheck}},
      {"CheckValidity", {kEINVAL}},
      {"CopySigningInformation", {fake::kFailedCheck}},
      {"CopyCommonName", {kEINVAL}},
      {"DynamicLibrary::Open", {kEAGAIN}},
      {"DynamicLibrary::FindSymbol", {kEFAULT, kENOENT}},
      {"FileExists", {kSuccess, kENOENT}},
      {"DirectoryExists", {kSuccess}},
      {"FileMode", {kENOTDIR, kSuccess}},
      {"CheckAccess", {EIO}},
      {"ModificationTime", {EIO}},
      {"DirectoryReader::Open", {EIO}},
      {"DirectoryReader::Next", {EIO}},
      {"InputFile::Open", {kENOENT}},
      {"InputFile::Read", {kENOENT}},
      {"CreateFileExclusively", {EIO}},
      {"CopyTree", {kENOENT}},
      {"RemoveTree", {kSuccess}},
      {"IsDeletable", {kSuccess}},
      {"WalkTree", {kENOENT}},
      {"TemporaryDirectory", {kENOENT}},
      {"ListProcesses", {}},
      {"ExecutablePath", {}},
      {"ReadPropertyListDictionary", {kENOENT}},
      {"RunTask", {EAGAIN, kSuccess}},
      {"Thread::Start", {EAGAIN}},
      {"Thread::Join", {EDEADLK}},
  };
  return calls;
}

/// Calls that have failed in any operation so far.
std::set<std::string>& FailedCalls() {
  static auto& calls = *new std::set<std::string>;
  return calls;
}

/// Runs the operation once for each of its fallible calls. @param count their number
void SweepCalls(const Operation& operation, std::size_t& count) {
  for (std::size_t number = 1;; ++number) {
    int code = -1;
    const auto run = RunOnce(operation, code, [number](OperationRun& prepared) {
      prepared.TheWorld().fallibleCalls = 0;
      prepared.TheWorld().failingCall = number;
    });
    const fake::World& world = run->TheWorld();
    if (world.failedCall == nullptr) return;
    count = number;
    const std::string failed = world.failedCall;
    FailedCalls().insert(failed);
    const auto known =
        std::find_if(FallibleCalls().begin(), FallibleCalls().end(),
                     [&failed](const FallibleCall& call) { return failed == call.name; });
    ASSERT_NE(known, FallibleCalls().end()) << failed;
    EXPECT_FALSE(run->escaped) << failed;
    EXPECT_TRUE(known->codes.count(code) != 0 || (operation.isTolerant && code == operation.code))
        << operation.name << ", call " << number << ", " << failed << ": " << code;
    const bool mayLeaveOutput =
        code != kSuccess || failed == "RemoveTree" || failed == "IsDeletable";
    EXPECT_TRUE(mayLeaveOutput || !run->HasOutputFile()) << failed;
  }
}

TEST(CallSweepTest, EveryCallOfThePlatformFailsOnce) {
  std::size_t calls = 0;
  for (const Operation& operation : Operations()) {
    std::size_t count = 0;
    SweepCalls(operation, count);
    calls += count;
  }
  RecordProperty("calls", static_cast<int>(calls));
  for (const FallibleCall& call : FallibleCalls()) {
    EXPECT_EQ(FailedCalls().count(call.name), 1U) << call.name << " is never called";
  }
}

}  // namespace
