// Colours, for people at a terminal.
#pragma once

#include <string>

namespace kavrelctl {

enum class Style { kGood, kWarning, kBad, kFaint };

/// Whether text on that descriptor may be coloured: it is a terminal, and NO_COLOR is not set.
bool MayColour(int fd);

/// `text`, coloured when it goes to a terminal that may be.
std::string Styled(const std::string& text, Style style, int fd);

}  // namespace kavrelctl
