// Functions of libraries that are loaded when the first of them is called.
//
// Linked in the usual way, a library is loaded into every program that links ours, whether or not
// the program ever uses the part of ours that calls it. So the shared library defines what it calls
// of such libraries itself: each function finds the real one on its first call. A program that uses
// the library itself has it loaded already, and that is the one found.
#pragma once

#include <atomic>

namespace kavrel {

/// When a call may load the library that it needs.
enum class Loading { kAllowed, kOnlyIfLoaded };

/// A library by the name under which programs load it. Lives as long as the program.
struct LibraryOnDemand {
  const char* name;
  Loading loading;
};

/// The function as the program already has it, else as the library has it. Null when there is none,
/// with an error line unless that is to be expected. What is loaded stays. Any thread.
void* FindOnDemand(const LibraryOnDemand& library, const char* function);

/// One function, found when first called; any thread. A call of one that is missing does nothing
/// and returns zero.
template <typename Function>
class OnDemand;

template <typename Result, typename... Arguments>
class OnDemand<Result(Arguments...)> {
 public:
  constexpr OnDemand(const LibraryOnDemand& library, const char* name)
      : library_(library), name_(name) {}

  Result operator()(Arguments... arguments) {
    const Function function = Get();
    return function != nullptr ? function(arguments...) : Result();
  }

 private:
  using Function = Result (*)(Arguments...);

  Function Get() {
    Function function = function_.load(std::memory_order_acquire);
    if (function == nullptr) {
      function = reinterpret_cast<Function>(FindOnDemand(library_, name_));
      function_.store(function, std::memory_order_release);
    }
    return function;
  }

  const LibraryOnDemand& library_;
  const char* const name_;
  std::atomic<Function> function_ = nullptr;
};

}  // namespace kavrel

/// Defines a function in place of the library's, for example
/// KAVREL_ON_DEMAND(kEvas, void, evas_object_show, (Evas_Object * object), (object)). A macro,
/// because a name, a string and a definition are made of one word. Inside extern "C".
#define KAVREL_ON_DEMAND(library, result, function, parameters, arguments)            \
  result(function) parameters {                                                       \
    static constinit kavrel::OnDemand<decltype(function)> real((library), #function); \
    return real arguments;                                                            \
  }
