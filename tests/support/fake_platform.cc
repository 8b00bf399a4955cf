#include "tests/support/fake_platform.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <thread>

#include "platform/bundle.h"
#include "platform/clock.h"
#include "platform/dynamic_library.h"
#include "platform/process_table.h"
#include "platform/standard_streams.h"
#include "platform/thread.h"
#include "platform/uuid.h"
#include "tests/support/allocation_failure.h"

namespace fake {
namespace {

std::unique_ptr<World>& Holder() {
  static auto& world = *new std::unique_ptr<World>(std::make_unique<World>());
  return world;
}

std::thread::id testThread = std::this_thread::get_id();

/// Only the test's own thread waits in virtual time.
bool WaitsForReal() {
  return World::Current().waitsAreReal || std::this_thread::get_id() != testThread;
}

/// `path` without doubled slashes and without one at its end.
std::string Normal(const std::string& path) {
  std::string normal;
  for (const char character : path) {
    if (character != '/' || normal.empty() || normal.back() != '/') normal += character;
  }
  if (normal.size() > 1 && normal.back() == '/') normal.pop_back();
  return normal;
}

const Node* FindNode(const std::string& path) {
  const auto& files = World::Current().files;
  const auto found = files.find(Normal(path));
  return found == files.end() ? nullptr : &found->second;
}

/// What stat() finds: not a dangling link.
const Node* FindTarget(const std::string& path) {
  const Node* const node = FindNode(path);
  return node == nullptr || node->isSymbolicLink ? nullptr : node;
}

/// Like World::FailsNow(), for a call that needs an autorelease pool.
bool CheckFailsNow(const char* call) {
  EXPECT_GT(World::Current().openPools, 0) << call << " without a pool";
  return World::Current().FailsNow(call);
}

int StatusError(const Node* node) { return node == nullptr ? ENOENT : node->statusError; }

/// Paths below `directory`, in order.
std::vector<std::string> PathsBelow(const std::string& directory) {
  std::vector<std::string> paths;
  const std::string prefix = Normal(directory) + "/";
  for (const auto& [path, node] : World::Current().files) {
    if (path.compare(0, prefix.size(), prefix) == 0) paths.push_back(path);
  }
  return paths;
}

void Advance(std::int64_t nanoseconds) {
  World& world = World::Current();
  world.monotonicNanoseconds += nanoseconds;
  world.wallMicroseconds += nanoseconds / 1000;
}

/// Runs the next scripted step with `lock` released. @return false when there is none, or an empty
/// one.
bool RunScriptedStep(std::unique_lock<std::mutex>& lock) {
  World& world = World::Current();
  if (world.whenWaiting.empty()) return false;
  const std::function<void()> step = std::move(world.whenWaiting.front());
  world.whenWaiting.pop_front();
  if (!step) return false;
  lock.unlock();
  step();
  lock.lock();
  return true;
}

}  // namespace

Signature Signature::Vendors() {
  Signature signature;
  signature.commonNames = {{"Developer ID Application: Corvane SRL (QK7ZP2M9XD)",
                            "Developer ID Certification Authority", "Apple Root CA"}};
  signature.teamIdentifier = "QK7ZP2M9XD";
  return signature;
}

World& World::Current() { return *Holder(); }

World& World::Reset() {
  Holder() = std::make_unique<World>();
  testThread = std::this_thread::get_id();
  return Current();
}

void World::AddFile(const std::string& path, const std::string& contents) {
  files[path].contents = contents;
}

void World::AddDirectory(const std::string& path) { files[path].mode = S_IFDIR | 0755; }

void World::Record(std::string_view call) {
  const AllocationFailure::Pause pause;  // destructors record, too
  const std::lock_guard<std::mutex> lock(callsLock_);
  calls_.emplace_back(call);
}

bool World::FailsNow(const char* call) {
  ++fallibleCalls;
  if (fallibleCalls != failingCall) return false;
  failedCall = call;
  return true;
}

std::vector<std::string> World::Calls() const {
  const std::lock_guard<std::mutex> lock(callsLock_);
  return calls_;
}

std::string UuidText(std::uint64_t number) {
  char text[64];
  std::snprintf(text, sizeof text, "00000000-0000-4000-8000-%012llu",
                static_cast<unsigned long long>(number));
  return text;
}

}  // namespace fake

namespace platform {

using fake::FindNode;
using fake::FindTarget;
using fake::Node;
using fake::World;

// bundle.h

std::optional<std::string> MainBundleText(const std::string& key) {
  if (World::Current().FailsNow("MainBundleText")) return std::nullopt;
  const auto& texts = World::Current().mainBundleTexts;
  const auto found = texts.find(key);
  if (found == texts.end()) return std::nullopt;
  return found->second;
}

std::optional<std::string> ApplicationExecutable(const std::string& bundlePath) {
  if (World::Current().FailsNow("ApplicationExecutable")) return std::nullopt;
  const auto& executables = World::Current().applicationExecutables;
  const auto found = executables.find(bundlePath);
  if (found == executables.end()) return std::nullopt;
  return found->second;
}

// clock.h

void Sleep(unsigned seconds) {
  World& world = World::Current();
  world.sleeps.push_back(seconds);
  world.Record("sleep " + std::to_string(seconds));
  fake::Advance(std::int64_t{seconds} * 1000000000);
}

std::int64_t WallClockSeconds() {
  return World::Current().wallMicroseconds / 1000000 + World::Current().secondsAhead;
}

std::int64_t WallClockMicroseconds() { return World::Current().wallMicroseconds; }

MonotonicTime MonotonicNow() {
  if (World::Current().waitsAreReal) return std::chrono::steady_clock::now();
  return MonotonicTime(std::chrono::nanoseconds(World::Current().monotonicNanoseconds));
}

void Wait(std::condition_variable& condition, std::unique_lock<std::mutex>& lock) {
  if (fake::WaitsForReal()) return condition.wait(lock);
  ++World::Current().untimedWaits;
  if (fake::RunScriptedStep(lock)) return;
  std::fputs("a wait that would never end\n", stderr);
  std::abort();
}

bool WaitUntil(std::condition_variable& condition, std::unique_lock<std::mutex>& lock,
               MonotonicTime deadline) {
  if (fake::WaitsForReal()) {
    return condition.wait_until(lock, deadline) == std::cv_status::no_timeout;
  }
  if (fake::RunScriptedStep(lock)) return true;
  const std::chrono::nanoseconds left = deadline - MonotonicNow();
  World::Current().expiredWaits.push_back(std::chrono::duration<double>(left).count());
  fake::Advance(left.count());
  return false;
}

// code_signing.h

AutoreleasePool::AutoreleasePool() { ++World::Current().openPools; }

AutoreleasePool::~AutoreleasePool() { --World::Current().openPools; }

OsStatus CreateStaticCode(const std::string& path, StaticCode& code) {
  code = {};
  if (fake::CheckFailsNow("CreateStaticCode")) return fake::kFailedCheck;
  const auto& signatures = World::Current().signatures;
  const auto found = signatures.find(path);
  if (found == signatures.end()) return -67068;
  if (found->second.createStatus != 0) return found->second.createStatus;
  code.handle = std::make_shared<fake::Signature>(found->second);
  return 0;
}

OsStatus CheckValidity(const StaticCode& code) {
  if (fake::CheckFailsNow("CheckValidity")) return fake::kFailedCheck;
  return static_cast<const fake::Signature*>(code.handle.get())->validity;
}

OsStatus CopySigningInformation(const StaticCode& code, SigningInformation& information) {
  if (fake::CheckFailsNow("CopySigningInformation")) return fake::kFailedCheck;
  const auto& signature = *static_cast<const fake::Signature*>(code.handle.get());
  if (signature.informationStatus != 0) return signature.informationStatus;
  information = {};
  information.teamIdentifier = signature.teamIdentifier;
  if (signature.commonNames) {
    information.certificates.emplace();
    for (const std::optional<std::string>& name : *signature.commonNames) {
      information.certificates->push_back({std::make_shared<std::optional<std::string>>(name)});
    }
  }
  return 0;
}

OsStatus CopyCommonName(const Certificate& certificate, std::optional<std::string>& name) {
  if (fake::CheckFailsNow("CopyCommonName")) return fake::kFailedCheck;
  name = *static_cast<const std::optional<std::string>*>(certificate.handle.get());
  return name ? 0 : -26276;
}

// dynamic_library.h

void LibraryTraits::Close(Handle) {
  --World::Current().openLibraries;
  World::Current().Record("unload");
}

DynamicLibrary DynamicLibrary::Open(const std::string& path, Binding binding) {
  World& world = World::Current();
  world.Record("load " + path + (binding == Binding::kNow ? " now" : " lazy global"));
  DynamicLibrary library;
  if (world.FailsNow("DynamicLibrary::Open")) return library;
  const auto found = world.libraries.find(path);
  if (found != world.libraries.end()) {
    library.library_.Reset(&found->second);
    ++world.openLibraries;
  }
  return library;
}

DynamicLibrary DynamicLibrary::OpenFromWorkingDirectory(const std::string& name, Binding binding) {
  return Open("./" + name, binding);
}

void* DynamicLibrary::FindSymbol(const char* name) const {
  if (World::Current().FailsNow("DynamicLibrary::FindSymbol")) return nullptr;
  const auto& symbols = *static_cast<const std::map<std::string, void*>*>(library_.Get());
  const auto found = symbols.find(name);
  return found == symbols.end() ? nullptr : found->second;
}

// files.h

bool FileExists(const std::string& path) {
  if (World::Current().FailsNow("FileExists")) return false;
  const Node* const node = FindTarget(path);
  return node != nullptr && node->statusError == 0;
}

bool DirectoryExists(const std::string& path) {
  const Node* const node = FindTarget(path);
  if (World::Current().FailsNow("DirectoryExists")) return false;
  return node != nullptr && node->statusError == 0 && S_ISDIR(node->mode);
}

int FileMode(const std::string& path, std::uint32_t& mode) {
  if (World::Current().FailsNow("FileMode")) return EIO;
  const Node* const node = FindTarget(path);
  if (const int error = fake::StatusError(node); error != 0) return error;
  mode = node->mode;
  return 0;
}

int CheckAccess(const std::string& path, AccessTest) {
  if (World::Current().FailsNow("CheckAccess")) return EIO;
  const Node* const node = FindTarget(path);
  if (const int error = fake::StatusError(node); error != 0) return error;
  const int error = node->accessError;
  if (node->vanishesOnceAccessed) World::Current().files.erase(fake::Normal(path));
  return error;
}

int ModificationTime(const std::string& path, FileTime& time) {
  if (World::Current().FailsNow("ModificationTime")) return EIO;
  World::Current().timeReads.push_back(path);
  const Node* const node = FindTarget(path);
  if (const int error = fake::StatusError(node); error != 0) return error;
  time = node->time;
  return 0;
}

namespace {

struct OpenDirectory {
  OpenDirectory() { ++World::Current().openDirectories; }
  ~OpenDirectory() { --World::Current().openDirectories; }
  OpenDirectory(const OpenDirectory&) = delete;
  OpenDirectory& operator=(const OpenDirectory&) = delete;

  std::vector<std::string> names;
  std::size_t next = 0;
  int readError = 0;
  std::size_t readErrorAt = 0;
};

OpenDirectory* ToDirectory(void* stream) { return static_cast<OpenDirectory*>(stream); }

}  // namespace

void DirectoryTraits::Close(Handle stream) { delete ToDirectory(stream); }

int DirectoryReader::Open(const std::string& path) {
  World& world = World::Current();
  if (world.directoryOpenError != 0) return world.directoryOpenError;
  if (world.FailsNow("DirectoryReader::Open")) return EIO;
  const Node* const node = FindTarget(path);
  if (node == nullptr) return ENOENT;
  if (!S_ISDIR(node->mode)) return ENOTDIR;
  auto directory = std::make_unique<OpenDirectory>();
  const auto order = world.directoryOrder.find(path);
  if (order != world.directoryOrder.end()) {
    directory->names = order->second;
  } else {
    for (const std::string& below : fake::PathsBelow(path)) {
      const std::string name = below.substr(path.size() + 1);
      if (name.find('/') == std::string::npos) directory->names.push_back(name);
    }
  }
  directory->readError = node->readError;
  directory->readErrorAt = node->readErrorAt;
  stream_.Reset(directory.release());
  return 0;
}

const char* DirectoryReader::Next() {
  OpenDirectory& directory = *ToDirectory(stream_.Get());
  if (World::Current().FailsNow("DirectoryReader::Next")) {
    error_ = EIO;
    return nullptr;
  }
  if (directory.readError != 0 && directory.next == directory.readErrorAt) {
    error_ = directory.readError;
    return nullptr;
  }
  if (directory.next == directory.names.size()) return nullptr;
  return directory.names[directory.next++].c_str();
}

namespace {

/// Open files, by descriptor.
struct OpenFile {
  Node node;
  std::size_t position = 0;
};

std::map<int, OpenFile>& OpenFiles() {
  static auto& files = *new std::map<int, OpenFile>;
  return files;
}

}  // namespace

void FileTraits::Close(Handle descriptor) {
  OpenFiles().erase(descriptor);
  --World::Current().openFiles;
}

int InputFile::Open(const std::string& path) {
  if (World::Current().FailsNow("InputFile::Open")) return EIO;
  const Node* const node = FindTarget(path);
  if (node == nullptr) return ENOENT;
  if (node->openError != 0) return node->openError;
  Close();
  static int nextDescriptor = 100;
  OpenFiles()[nextDescriptor] = {*node, 0};
  file_.Reset(nextDescriptor++);
  ++World::Current().openFiles;
  return 0;
}

int InputFile::Read(char* buffer, std::size_t capacity, std::size_t& count) {
  if (World::Current().FailsNow("InputFile::Read")) return EIO;
  OpenFile& file = OpenFiles().at(file_.Get());
  if (S_ISDIR(file.node.mode)) return EISDIR;
  std::size_t end = file.node.contents.size();
  if (file.node.readError != 0) {
    if (file.position >= file.node.readErrorAt) return file.node.readError;
    end = std::min(end, file.node.readErrorAt);
  }
  count = std::min(capacity, end - file.position);
  std::memcpy(buffer, file.node.contents.data() + file.position, count);
  file.position += count;
  return 0;
}

// The logger's stream appends to a real file.
int AppendedFile::Open(const std::string& path) {
  World& world = World::Current();
  world.appendedFiles.push_back(path);
  if (world.FailsNow("AppendedFile::Open")) return EIO;
  file_.Reset(0);
  ++world.openFiles;
  return 0;
}

int CreateFileExclusively(const std::string& path) {
  World& world = World::Current();
  if (world.createError != 0) return world.createError;
  if (world.FailsNow("CreateFileExclusively")) return EIO;
  if (world.Exists(path)) return EEXIST;
  world.AddFile(path);
  return 0;
}

bool CopyTree(const std::string& source, const std::string& destination) {
  World& world = World::Current();
  if (world.FailsNow("CopyTree")) return false;
  const Node* const node = FindNode(source);
  if (node == nullptr || node->failsToCopy || FindNode(destination) != nullptr) return false;
  for (const std::string& path : fake::PathsBelow(source)) {
    world.files[fake::Normal(destination + path.substr(fake::Normal(source).size()))] =
        world.files[path];
  }
  Node& copy = world.files[fake::Normal(destination)] = *node;
  if (const auto afterwards = std::exchange(copy.afterwards, nullptr)) afterwards();
  return true;
}

bool RemoveTree(const std::string& path) {
  World& world = World::Current();
  if (world.FailsNow("RemoveTree")) return false;
  const Node* const node = FindNode(path);
  if (node == nullptr || node->failsToRemove) return false;
  const auto afterwards = node->afterwards;
  for (const std::string& below : fake::PathsBelow(path)) world.files.erase(below);
  world.files.erase(fake::Normal(path));
  if (afterwards) afterwards();
  return true;
}

bool IsDeletable(const std::string& path) {
  if (World::Current().FailsNow("IsDeletable")) return false;
  const Node* const node = FindNode(path);
  return node != nullptr && node->isDeletable;
}

void WalkTree(const std::string& root,
              const std::function<bool(const std::string& relativePath)>& visit) {
  if (World::Current().FailsNow("WalkTree")) return;
  for (const std::string& path : fake::PathsBelow(root)) {
    if (!visit(path.substr(fake::Normal(root).size() + 1))) return;
  }
}

std::optional<std::string> TemporaryDirectory() {
  World& world = World::Current();
  if (world.FailsNow("TemporaryDirectory")) return std::nullopt;
  return world.temporaryDirectory;
}

// process_table.h

ProcessRecord::ProcessRecord(int processId, const char* shortName)
    : processId_(processId), shortName_{} {
  std::strncpy(shortName_, shortName, sizeof shortName_ - 1);
}

std::string ProcessRecord::ShortName() const {
  World& world = World::Current();
  ++world.shortNameReads[{world.polls, processId_}];
  return shortName_;
}

namespace {

const std::vector<fake::Process>& CurrentProcesses() {
  const World& world = World::Current();
  return world.processTables[std::min(world.polls, world.processTables.size()) - 1];
}

}  // namespace

bool ListProcesses(std::vector<ProcessRecord>& records) {
  World& world = World::Current();
  ++world.polls;
  world.Record("list processes");
  if (world.FailsNow("ListProcesses")) return false;
  if (world.processTableFails) return false;
  records.clear();
  for (const fake::Process& process : CurrentProcesses()) {
    records.emplace_back(process.processId, process.shortName.c_str());
  }
  return true;
}

bool ExecutablePath(int processId, std::string& path) {
  World& world = World::Current();
  if (world.polls == 0) world.polls = 1;
  if (world.FailsNow("ExecutablePath")) return false;
  ++world.executableReads[{world.polls, processId}];
  for (const fake::Process& process : CurrentProcesses()) {
    if (process.processId != processId || !process.executablePath) continue;
    path = *process.executablePath;
    return true;
  }
  return false;
}

// property_list.h

std::optional<PropertyListValue> ReadPropertyListDictionary(const std::string& path) {
  if (World::Current().FailsNow("ReadPropertyListDictionary")) return std::nullopt;
  const auto& lists = World::Current().propertyLists;
  const auto found = lists.find(path);
  if (found == lists.end()) return std::nullopt;
  return found->second;
}

// standard_streams.h

void EnsureStandardDescriptors() {}

void WriteStandardOutput(std::string_view text) { World::Current().standardOutput += text; }

// task.h

int RunTask(const Task& task) {
  World& world = World::Current();
  world.tasks.push_back(task);
  std::string words = "run " + task.launchPath;
  for (const std::string& argument : task.arguments) words += " " + argument;
  world.Record(words);
  if (world.FailsNow("RunTask")) return EAGAIN;
  const auto program = world.programs.find(task.launchPath);
  if (program == world.programs.end()) return ENOENT;
  if (program->second.effect) program->second.effect(task);
  return program->second.status;
}

// thread.h

int Thread::Start(Routine routine, void* argument) {
  World& world = World::Current();
  if (world.threadStartError != 0) return world.threadStartError;
  if (world.FailsNow("Thread::Start")) return EAGAIN;
  const int error = pthread_create(&thread_, nullptr, routine, argument);
  joinable_ = error == 0;
  if (joinable_) ++world.runningThreads;
  return error;
}

int Thread::Join() {
  World& world = World::Current();
  if (world.FailsNow("Thread::Join")) return EDEADLK;
  if (world.threadJoinError != 0) return std::exchange(world.threadJoinError, 0);
  joinable_ = false;
  --world.runningThreads;
  return pthread_join(thread_, nullptr);
}

// uuid.h

void RandomUuidText(char (&text)[kUuidTextSize]) {
  const std::string uuid = fake::UuidText(++World::Current().uuids);
  std::memcpy(text, uuid.c_str(), kUuidTextSize);
}

}  // namespace platform
