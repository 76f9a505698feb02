// Counts the texts that a fake has handed out with malloc and that nobody has freed.
#pragma once

#include <cstddef>
#include <string>

namespace kavrel_test {

/// A copy of `text` on the heap, counted until it is freed by an object file of this program: the
/// linker's --wrap=free, which the fakes' targets ask for, tells. Any thread.
char* HandOutText(const std::string& text);

/// Counts a text that somebody else has made with malloc; returns it.
char* CountText(char* text);

/// How many are out.
std::size_t LiveTexts();

}  // namespace kavrel_test
