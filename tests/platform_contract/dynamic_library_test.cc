#include "platform/dynamic_library.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "tests/platform_contract/support.h"

namespace platform {
namespace {

using contract::TemporaryTree;

constexpr const char* kLibraryName = "libkx contract \xC3\xA4.dylib";
constexpr const char* kAnswer = "kx_contract_answer";

/// A separate copy of the sample library, so that no other test has it loaded.
std::string CopyOfLibrary(const TemporaryTree& tree, const char* original) {
  return tree.MakeFile(kLibraryName, contract::ReadAll(original));
}

int CallAnswer(const DynamicLibrary& library) {
  void* const address = library.FindSymbol(kAnswer);
  return address == nullptr ? -1 : reinterpret_cast<int (*)()>(address)();
}

/// Makes the library set `unloaded` when it is unloaded.
void TellUnload(const DynamicLibrary& library, int& unloaded) {
  void* const address = library.FindSymbol("kx_contract_tell_unload");
  ASSERT_NE(address, nullptr);
  reinterpret_cast<void (*)(int*)>(address)(&unloaded);
}

TEST(DynamicLibraryContract, LoadsFindsAndUnloads) {
  const TemporaryTree tree;
  for (const Binding binding : {Binding::kNow, Binding::kLazyGlobal}) {
    DynamicLibrary library =
        DynamicLibrary::Open(CopyOfLibrary(tree, KX_CONTRACT_SAMPLE_LIBRARY), binding);
    ASSERT_TRUE(library.IsOpen());
    EXPECT_EQ(CallAnswer(library), 42);
    EXPECT_EQ(library.FindSymbol("kx_contract_missing"), nullptr);
    int unloaded = 0;
    TellUnload(library, unloaded);
    library.Close();
    EXPECT_FALSE(library.IsOpen());
    EXPECT_EQ(unloaded, 1);
    library.Close();
    EXPECT_FALSE(library.IsOpen());
  }
}

TEST(DynamicLibraryContract, UnloadsOnceWhenItsLastOwnerIsDestroyed) {
  const TemporaryTree tree;
  int unloaded = 0;
  {
    DynamicLibrary first =
        DynamicLibrary::Open(CopyOfLibrary(tree, KX_CONTRACT_SAMPLE_LIBRARY), Binding::kNow);
    ASSERT_TRUE(first.IsOpen());
    TellUnload(first, unloaded);
    DynamicLibrary second;
    second = std::move(first);
    EXPECT_FALSE(first.IsOpen());
    EXPECT_EQ(CallAnswer(second), 42);
    EXPECT_EQ(unloaded, 0);
  }
  EXPECT_EQ(unloaded, 1);
}

TEST(DynamicLibraryContract, IsNotOpenWhenLoadingFails) {
  const TemporaryTree tree;
  const std::string garbage = tree.MakeFile("garbage", "no library");
  for (const std::string& path : {tree.Path("nothing"), garbage, tree.Root()}) {
    for (const Binding binding : {Binding::kNow, Binding::kLazyGlobal}) {
      EXPECT_FALSE(DynamicLibrary::Open(path, binding).IsOpen()) << path;
    }
  }
}

TEST(DynamicLibraryContract, OnlyGlobalBindingShowsSymbolsToOthers) {
  const TemporaryTree tree;
  const std::string path = CopyOfLibrary(tree, KX_CONTRACT_SAMPLE_LIBRARY);
  ASSERT_EQ(dlsym(RTLD_DEFAULT, kAnswer), nullptr);
#ifdef __linux__
  // On macOS RTLD_NOW alone means RTLD_GLOBAL too.
  {
    const DynamicLibrary library = DynamicLibrary::Open(path, Binding::kNow);
    EXPECT_EQ(dlsym(RTLD_DEFAULT, kAnswer), nullptr);
  }
#endif
  const DynamicLibrary library = DynamicLibrary::Open(path, Binding::kLazyGlobal);
  EXPECT_EQ(dlsym(RTLD_DEFAULT, kAnswer), library.FindSymbol(kAnswer));
}

#ifdef __linux__
// The loader of a current macOS binds everything at once in either mode.
TEST(DynamicLibraryContract, OnlyLazyBindingTakesALibraryWithAMissingReference) {
  const TemporaryTree tree;
  const std::string path = CopyOfLibrary(tree, KX_CONTRACT_INCOMPLETE_LIBRARY);
  EXPECT_FALSE(DynamicLibrary::Open(path, Binding::kNow).IsOpen());
#if !defined(__SANITIZE_THREAD__)
  const contract::Environment bindNow("LD_BIND_NOW", nullptr);
  EXPECT_TRUE(DynamicLibrary::Open(path, Binding::kLazyGlobal).IsOpen());
#endif
}
#endif

TEST(DynamicLibraryContract, LoadsFromTheWorkingDirectory) {
  const TemporaryTree tree;
  CopyOfLibrary(tree, KX_CONTRACT_SAMPLE_LIBRARY);
  EXPECT_FALSE(
      DynamicLibrary::OpenFromWorkingDirectory(kLibraryName, Binding::kLazyGlobal).IsOpen());
  const contract::WorkingDirectory here(tree.Root());
  const DynamicLibrary library =
      DynamicLibrary::OpenFromWorkingDirectory(kLibraryName, Binding::kLazyGlobal);
  ASSERT_TRUE(library.IsOpen());
  EXPECT_EQ(CallAnswer(library), 42);
}

}  // namespace
}  // namespace platform
