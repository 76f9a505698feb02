#include "live_texts.h"

#include <cstdlib>
#include <cstring>
#include <mutex>
#include <unordered_set>

namespace kavrel_test {
namespace {

// Never destroyed: free() is called before and after main, too.
struct Texts {
  std::mutex mutex;
  std::unordered_set<const void*> out;
};

Texts& TheTexts() {
  static Texts& texts = *new Texts;
  return texts;
}

void Forget(const void* memory) {
  Texts& texts = TheTexts();
  const std::lock_guard lock(texts.mutex);
  texts.out.erase(memory);
}

}  // namespace

char* HandOutText(const std::string& text) {
  char* const copy = ::strdup(text.c_str());
  Texts& texts = TheTexts();
  const std::lock_guard lock(texts.mutex);
  texts.out.insert(copy);
  return copy;
}

std::size_t LiveTexts() {
  Texts& texts = TheTexts();
  const std::lock_guard lock(texts.mutex);
  return texts.out.size();
}

}  // namespace kavrel_test

// The linker puts this in the place of free.
extern "C" {
void __real_free(void* memory);
void __wrap_free(void* memory);

void __wrap_free(void* memory) {
  kavrel_test::Forget(memory);
  __real_free(memory);
}
}
