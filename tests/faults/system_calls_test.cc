// What the Linux adapters do when a system call fails after others succeeded: each call of each
// operation in turn.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdlib>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "platform/files.h"
#include "platform/linux/code_signing/signed_code.h"
#include "platform/linux/random_access_file.h"
#include "platform/posix/descriptor.h"
#include "platform/process_table.h"
#include "platform/standard_streams.h"
#include "platform/task.h"
#include "tests/code_signing/signature_builder.h"
#include "tests/faults/failing_calls.h"
#include "tests/platform_contract/support.h"

namespace platform {
namespace {

using contract::TemporaryTree;
using failing_calls::Fault;

constexpr char kContents[] = "contents of the file";

/// Arms a failure around the calls of the adapters and not around those of the test.
class Injector {
 public:
  Injector(const std::string& name, std::size_t number, Fault fault)
      : name_(name), number_(number), fault_(fault) {}

  template <typename Call>
  auto operator()(const Call& call) {
    failing_calls::Arm(name_, number_, fault_);
    auto result = call();
    wasMet_ = failing_calls::Disarm();
    return result;
  }

  bool WasMet() const { return wasMet_; }

 private:
  const std::string& name_;
  std::size_t number_;
  Fault fault_;
  bool wasMet_ = false;
};

/// Restores the standard descriptors on destruction.
class StandardDescriptors {
 public:
  StandardDescriptors() {
    for (std::size_t i = 0; i < saved_.size(); ++i) {
      saved_[i] = fcntl(static_cast<int>(i), F_DUPFD_CLOEXEC, 10);
    }
  }
  ~StandardDescriptors() {
    for (std::size_t i = 0; i < saved_.size(); ++i) {
      dup2(saved_[i], static_cast<int>(i));
      close(saved_[i]);
    }
  }
  StandardDescriptors(const StandardDescriptors&) = delete;
  StandardDescriptors& operator=(const StandardDescriptors&) = delete;

 private:
  std::array<int, 3> saved_{};
};

std::string Text(bool value) { return value ? "yes" : "no"; }

/// The outcome of something that returns an `errno`.
std::string Outcome(int error, const std::string& result = "") {
  return error == 0 ? "0 " + result : std::to_string(error);
}

// The operations: each creates what it needs in `tree` and returns its outcome.

std::string RunFileExists(const TemporaryTree& tree, Injector& inject) {
  const std::string path = tree.MakeFile("file");
  return Text(inject([&] { return FileExists(path); }));
}

std::string RunDirectoryExists(const TemporaryTree& tree, Injector& inject) {
  return Text(inject([&] { return DirectoryExists(tree.Root()); }));
}

std::string RunFileMode(const TemporaryTree& tree, Injector& inject) {
  std::uint32_t mode = 0;
  const std::string path = tree.MakeFile("file");
  const int error = inject([&] { return FileMode(path, mode); });
  return Outcome(error, Text(mode != 0));
}

std::string RunCheckAccess(const TemporaryTree& tree, Injector& inject) {
  return Outcome(inject([&] { return CheckAccess(tree.Root(), AccessTest::kReadable); }));
}

std::string RunModificationTime(const TemporaryTree& tree, Injector& inject) {
  FileTime time;
  const std::string path = tree.MakeFile("file");
  contract::SetModificationTime(path, 1000, 5);
  const int error = inject([&] { return ModificationTime(path, time); });
  return Outcome(error, std::to_string(time.seconds));
}

std::string RunDirectoryReader(const TemporaryTree& tree, Injector& inject) {
  tree.MakeFile("file");
  return inject([&] {
    DirectoryReader reader;
    if (const int error = reader.Open(tree.Root()); error != 0) return Outcome(error);
    bool found = false;
    while (const char* const name = reader.Next()) found = found || name == std::string("file");
    return reader.Error() == 0 ? Text(found) : Outcome(reader.Error());
  });
}

std::string RunInputFile(const TemporaryTree& tree, Injector& inject) {
  const std::string path = tree.MakeFile("file", kContents);
  return inject([&] {
    InputFile file;
    if (const int error = file.Open(path); error != 0) return Outcome(error);
    std::string contents;
    char chunk[100];
    std::size_t count = 0;
    do {
      if (const int error = file.Read(chunk, sizeof(chunk), count); error != 0) {
        return Outcome(error);
      }
      contents.append(chunk, count);
    } while (count > 0);
    return contents;
  });
}

std::string RunAppendedFile(const TemporaryTree& tree, Injector& inject) {
  const std::string path = tree.Path("file");
  return Outcome(inject([&] { return AppendedFile().Open(path); }));
}

std::string RunCreateFile(const TemporaryTree& tree, Injector& inject) {
  const std::string path = tree.Path("file");
  return Outcome(inject([&] { return CreateFileExclusively(path); }));
}

std::string RunCopyTree(const TemporaryTree& tree, Injector& inject) {
  tree.MakeDirectory("from");
  tree.MakeDirectory("from/directory");
  tree.MakeFile("from/directory/file", kContents);
  tree.MakeLink("from/link", "directory");
  const std::string copy = tree.Path("to");
  if (!inject([&] { return CopyTree(tree.Path("from"), copy); })) {
    return contract::NothingAt(copy) ? "nothing" : "remains";
  }
  return contract::ReadAll(copy + "/directory/file") + contract::ReadAll(copy + "/link/file");
}

std::string RunIsDeletable(const TemporaryTree& tree, Injector& inject) {
  const std::string path = tree.MakeFile("file");
  return Text(inject([&] { return IsDeletable(path); }));
}

std::string RunWalkTree(const TemporaryTree& tree, Injector& inject) {
  tree.MakeFile("file");
  return inject([&] {
    std::string visited;
    WalkTree(tree.Root(), [&](const std::string& path) {
      visited += path;
      return true;
    });
    return visited;
  });
}

std::string RunTemporaryDirectory(const TemporaryTree& tree, Injector& inject) {
  const contract::Environment environment("TMPDIR", tree.Root().c_str());
  const auto directory = inject([] { return TemporaryDirectory(); });
  return directory == tree.Root() + "/" ? "chosen" : directory.value_or("none");
}

std::string RunListProcesses(const TemporaryTree&, Injector& inject) {
  std::vector<ProcessRecord> records;
  if (!inject([&] { return ListProcesses(records); })) return "none";
  return Text(std::any_of(records.begin(), records.end(), [](const ProcessRecord& record) {
    return record.ProcessId() == getpid();
  }));
}

std::string RunShortName(const TemporaryTree&, Injector& inject) {
  const ProcessRecord own(getpid(), nullptr);
  return Text(!inject([&] { return own.ShortName(); }).empty());
}

std::string RunExecutablePath(const TemporaryTree&, Injector& inject) {
  std::string path = "untouched";
  const bool found = inject([&] { return ExecutablePath(getpid(), path); });
  return found ? Text(path == contract::OwnProgram()) : path;
}

std::string RunShell(const Task& chosen, Injector& inject) {
  Task task = chosen;
  task.launchPath = "/bin/sh";
  task.arguments = {"-c", "echo text; exit 7"};
  const int status = inject([&] { return RunTask(task); });
  while (waitpid(-1, nullptr, 0) > 0) {  // the child for which RunTask() could not wait
  }
  return std::to_string(status);
}

std::string RunTaskIntoPipe(const TemporaryTree&, Injector& inject) { return RunShell({}, inject); }

std::string RunTaskIntoFile(const TemporaryTree& tree, Injector& inject) {
  return RunShell({"", {}, tree.MakeFile("output")}, inject);
}

std::string RunTaskWithoutDescriptors(const TemporaryTree&, Injector& inject) {
  const StandardDescriptors standard;
  for (int descriptor = 0; descriptor < 3; ++descriptor) close(descriptor);
  return RunShell({}, inject);
}

std::string RunEnsureDescriptors(const TemporaryTree&, Injector& inject) {
  const StandardDescriptors standard;
  close(STDIN_FILENO);
  return inject([] {
    EnsureStandardDescriptors();
    return Text(fcntl(STDIN_FILENO, F_GETFD) >= 0);
  });
}

/// Writes into a full pipe, which another thread reads once the writer waits or has given up.
std::string RunWriteOutput(const TemporaryTree&, Injector& inject) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0) return "no pipe";
  std::size_t fill = 0;
  const std::string page(4096, 'x');
  for (ssize_t count; (count = write(ends[1], page.data(), page.size())) > 0;) {
    fill += static_cast<std::size_t>(count);
  }
  const StandardDescriptors standard;
  dup2(ends[1], STDOUT_FILENO);
  close(ends[1]);
  std::string received;
  std::atomic<bool> hasEnded = false;
  const std::size_t waits = failing_calls::Count("poll");
  std::thread reader([&] {
    while (failing_calls::Count("poll") == waits && !hasEnded) std::this_thread::yield();
    fcntl(ends[0], F_SETFL, 0);
    char chunk[4096];
    for (ssize_t count; (count = read(ends[0], chunk, sizeof(chunk))) > 0;) {
      received.append(chunk, static_cast<std::size_t>(count));
    }
  });
  inject([] {
    WriteStandardOutput(kContents);
    return 0;
  });
  hasEnded = true;
  close(STDOUT_FILENO);
  reader.join();
  close(ends[0]);
  return received.substr(fill);
}

std::string RunReadAll(const TemporaryTree& tree, Injector& inject) {
  const std::string path = tree.MakeFile("file", kContents);
  return inject([&] {
    RandomAccessFile file;
    if (const int error = file.Open(path); error != 0) return Outcome(error);
    std::string bytes;
    const int error = file.ReadAll(bytes);
    return error == 0 ? bytes : Outcome(error);
  });
}

std::string RunReadPiece(const TemporaryTree& tree, Injector& inject) {
  const std::string path = tree.MakeFile("file", kContents);
  RandomAccessFile file;
  if (file.Open(path) != 0) return "not open";
  return inject([&] { return file.ReadPiece(0, sizeof(kContents) - 1); }).value_or("none");
}

std::string RunSize(const TemporaryTree& tree, Injector& inject) {
  const std::string path = tree.MakeFile("file", kContents);
  RandomAccessFile file;
  if (file.Open(path) != 0) return "not open";
  std::uint64_t size = 0;
  const int error = inject([&] { return file.Size(size); });
  return Outcome(error, std::to_string(size));
}

using code_signing::MakeSignedMachO;

std::string Validity(const std::string& path, Injector& inject) {
  return std::to_string(inject([&] {
    std::unique_ptr<code_signing::SignedCode> code;
    const auto context = std::make_shared<code_signing::CheckContext>();
    const OsStatus status = code_signing::SignedCode::Open(path, context, code);
    return status == code_signing::kErrSecSuccess ? code->CheckValidity() : status;
  }));
}

std::string RunCheckFile(const TemporaryTree& tree, Injector& inject) {
  return Validity(tree.MakeFile("tool", MakeSignedMachO({})), inject);
}

std::string RunCheckChangedFile(const TemporaryTree& tree, Injector& inject) {
  std::string file = MakeSignedMachO({});
  file[60] = 'x';
  return Validity(tree.MakeFile("tool", file), inject);
}

/// Makes a bundle that seals one resource. @return its path.
std::string MakeBundle(const TemporaryTree& tree) {
  const std::string information =
      "<plist><dict><key>CFBundleExecutable</key><string>Agent</string></dict></plist>";
  const std::string seal =
      "<plist><dict><key>files</key><dict/><key>rules</key><dict/><key>files2</key><dict>"
      "<key>Resources/r</key><dict><key>hash2</key><data>"
      "47DEQpj8HBSa+/TImW+5JCeuQeRkm5NMpJWZG3hSuFU=</data></dict>"
      "<key>Resources/l</key><dict><key>symlink</key><string>r</string></dict></dict>"
      "<key>rules2</key><dict><key>^Resources/</key><true/></dict></dict></plist>";
  for (const char* directory :
       {"", "/Contents", "/Contents/MacOS", "/Contents/Resources", "/Contents/_CodeSignature"}) {
    tree.MakeDirectory(std::string("Agent.app") + directory);
  }
  tree.MakeFile("Agent.app/Contents/Info.plist", information);
  tree.MakeFile("Agent.app/Contents/MacOS/Agent",
                MakeSignedMachO({{code_signing::kSlotInfoPlist, information},
                                 {code_signing::kSlotResourceDirectory, seal}}));
  tree.MakeFile("Agent.app/Contents/_CodeSignature/CodeResources", seal);
  tree.MakeFile("Agent.app/Contents/Resources/r");
  tree.MakeLink("Agent.app/Contents/Resources/l", "r");
  return tree.Path("Agent.app");
}

std::string RunCheckBundle(const TemporaryTree& tree, Injector& inject) {
  return Validity(MakeBundle(tree), inject);
}

std::string RunCheckChangedBundle(const TemporaryTree& tree, Injector& inject) {
  const std::string bundle = MakeBundle(tree);
  tree.MakeFile("Agent.app/Contents/Resources/r", "changed");
  return Validity(bundle, inject);
}

using Names = std::set<std::string>;

struct Operation {
  const char* name;
  std::string (*run)(const TemporaryTree& tree, Injector& inject);
  std::string usual;
  Names whenFailed;  ///< all outcomes of calls that fail
  Names repeated;    ///< calls that are made again when a signal interrupts them
  Names continued;   ///< calls that are made again when they read or write less than asked for
};

void PrintTo(const Operation& operation, std::ostream* stream) { *stream << operation.name; }

Names With(Names names, const char* name) {
  names.insert(name);
  return names;
}

const std::vector<Operation>& Operations() {
  constexpr char kError[] = "5";  // EIO
  // The statuses of a signature that could not be read.
  const Names fileStatuses = {"-67045", "-67049", "-67062", "100005"};
  const Names bundleStatuses = {"-67011", "-67023", "-67028", "-67030", "-67045",
                                "-67049", "-67054", "-67061", "-67062", "100005"};
  static const auto& operations = *new std::vector<Operation>{
      {"FileExists", RunFileExists, "yes", {"no"}, {}, {}},
      {"DirectoryExists", RunDirectoryExists, "yes", {"no"}, {}, {}},
      {"FileMode", RunFileMode, "0 yes", {kError}, {}, {}},
      {"CheckAccess", RunCheckAccess, "0 ", {kError}, {}, {}},
      {"ModificationTime", RunModificationTime, "0 1000", {kError}, {}, {}},
      {"DirectoryReader", RunDirectoryReader, "yes", {kError}, {}, {}},
      {"InputFile", RunInputFile, kContents, {kError}, {"openat", "read"}, {"read"}},
      {"AppendedFile", RunAppendedFile, "0 ", {kError, "0 "}, {"openat"}, {}},
      {"CreateFileExclusively", RunCreateFile, "0 ", {kError}, {}, {}},
      {"CopyTree",
       RunCopyTree,
       std::string(kContents) + kContents,
       {"nothing", std::string(kContents) + kContents},
       {"read", "write"},
       {"read", "write"}},
      {"IsDeletable", RunIsDeletable, "yes", {"no"}, {}, {}},
      {"WalkTree", RunWalkTree, "file", {"", "file"}, {}, {}},
      {"TemporaryDirectory", RunTemporaryDirectory, "chosen", {"/tmp/"}, {}, {}},
      {"ListProcesses", RunListProcesses, "yes", {"none"}, {}, {}},
      {"ShortName", RunShortName, "yes", {"no"}, {"openat", "read"}, {}},
      {"ExecutablePath", RunExecutablePath, "yes", {"untouched"}, {}, {}},
      {"TaskIntoPipe", RunTaskIntoPipe, "7", {kError}, {"waitpid"}, {}},
      {"TaskIntoFile", RunTaskIntoFile, "7", {kError}, {"waitpid"}, {}},
      {"TaskWithoutDescriptors", RunTaskWithoutDescriptors, "7", {kError}, {"waitpid"}, {}},
      {"EnsureStandardDescriptors", RunEnsureDescriptors, "yes", {"no", "yes"}, {}, {}},
      {"WriteStandardOutput", RunWriteOutput, kContents, {""}, {"write", "poll"}, {"write"}},
      {"ReadAll", RunReadAll, kContents, {kError}, {"openat", "pread"}, {"pread"}},
      {"ReadPiece", RunReadPiece, kContents, {"none"}, {"pread"}, {"pread"}},
      {"Size", RunSize, "0 20", {kError}, {}, {}},
      {"CheckFile", RunCheckFile, "0", With(fileStatuses, "0"), {"openat", "pread"}, {"pread"}},
      {"CheckChangedFile",
       RunCheckChangedFile,
       "-67061",
       With(fileStatuses, "-67061"),
       {"openat", "pread"},
       {"pread"}},
      {"CheckBundle",
       RunCheckBundle,
       "0",
       With(bundleStatuses, "0"),
       {"openat", "pread"},
       {"pread"}},
      {"CheckChangedBundle",
       RunCheckChangedBundle,
       "-67054",
       bundleStatuses,
       {"openat", "pread"},
       {"pread"}},
  };
  return operations;
}

Names OpenDescriptors() {
  Names names;
  DirectoryReader reader;
  EXPECT_EQ(reader.Open("/proc/self/fd"), 0);
  while (const char* const name = reader.Next()) names.insert(name);
  return names;
}

class SystemCallsTest : public testing::TestWithParam<Operation> {
 protected:
  /// Runs the operation once for each of its calls to `name`, and injects `fault` into that call.
  /// @return the outcomes.
  static Names Sweep(const std::string& name, Fault fault) {
    Names outcomes;
    for (std::size_t number = 1;; ++number) {
      const Names open = OpenDescriptors();
      std::string outcome;
      Injector inject(name, number, fault);
      {
        const TemporaryTree tree;
        outcome = GetParam().run(tree, inject);
      }
      EXPECT_EQ(OpenDescriptors(), open) << name << ' ' << number;
      if (!inject.WasMet()) {
        EXPECT_EQ(outcome, GetParam().usual) << name << ' ' << number;
        return outcomes;
      }
      outcomes.insert(outcome);
    }
  }
};

TEST_P(SystemCallsTest, FailureIsReported) {
  Names outcomes;
  for (const std::string& name : failing_calls::Names()) outcomes.merge(Sweep(name, Fault::kError));
  EXPECT_EQ(outcomes, GetParam().whenFailed);
}

TEST_P(SystemCallsTest, InterruptionsAndShortTransfersChangeNothing) {
  for (const std::string& name : GetParam().repeated) {
    EXPECT_EQ(Sweep(name, Fault::kInterrupted), Names{GetParam().usual}) << name;
  }
  for (const std::string& name : GetParam().continued) {
    EXPECT_EQ(Sweep(name, Fault::kCut), Names{GetParam().usual}) << name;
  }
}

INSTANTIATE_TEST_SUITE_P(Operations, SystemCallsTest, testing::ValuesIn(Operations()),
                         testing::PrintToStringParamName());

}  // namespace
}  // namespace platform
