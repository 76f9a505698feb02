#include "on_demand.h"

#include <dlfcn.h>

#include <string>

#include "log.h"

namespace kavrel {
namespace {

std::string LoaderProblem() {
  const char* const text = ::dlerror();
  return text != nullptr ? text : "(null)";
}

// The library as the loader finds it, else from where this one lies: the loader does not look there
// by itself, and bundled services are installed there. Empty `problem`: found, or not wanted.
void* Load(const LibraryOnDemand& library, std::string& problem) {
  if (library.loading == Loading::kOnlyIfLoaded) {
    return ::dlopen(library.name, RTLD_NOW | RTLD_NOLOAD);
  }
  if (void* const found = ::dlopen(library.name, RTLD_NOW)) return found;
  problem = LoaderProblem();
  Dl_info self{};
  if (::dladdr(reinterpret_cast<void*>(&Load), &self) == 0) return nullptr;
  const std::string own = self.dli_fname;
  const std::string beside = own.substr(0, own.rfind('/') + 1) + library.name;
  void* const found = ::dlopen(beside.c_str(), RTLD_NOW);
  if (found != nullptr) problem.clear();
  return found;
}

}  // namespace

void* FindOnDemand(const LibraryOnDemand& library, const char* function) {
  if (void* const known = ::dlsym(RTLD_DEFAULT, function)) return known;
  std::string problem;
  void* const handle = Load(library, problem);
  if (handle == nullptr && problem.empty()) return nullptr;
  void* const found = handle != nullptr ? ::dlsym(handle, function) : nullptr;
  if (handle != nullptr && found == nullptr) problem = LoaderProblem();
  if (found == nullptr) {
    KAVREL_LOG(kLogError, "kavrel-api", Here(), "cannot call %s: %s\n", function, problem.c_str());
  }
  return found;
}

}  // namespace kavrel
