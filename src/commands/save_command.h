// The pure parts of `save`: the -F word and the format rule.
#pragma once

#include <cstdint>
#include <string>

#include "platform/platform.h"

namespace vmd {

struct ImageFormatChoice {
  std::uint32_t format = 0;  // imageformat::
  std::int32_t level = 1;    // COMPR level as read; clamped by ApplyFormatRule
};

// Applies one -F word to `choice`, without regard to case: "smart" gives
// SMART; "compr" alone COMPR with level 0; "compr?<n>" COMPR with level n;
// every other word PLAIN, silently. The level is left alone unless COMPR.
void ApplyImageFormatWord(ImageFormatChoice& choice, const std::wstring& word);

// A disk that can hold a SMART image saves COMPR as SMART; one that cannot
// saves SMART as PLAIN. A level of 1 or more is held to 9; below 1 it is 1.
ImageFormatChoice ApplyFormatRule(ImageFormatChoice choice, bool smartCapable);

}  // namespace vmd
