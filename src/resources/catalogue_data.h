// The catalogue as data, generated from catalogue.txt for builds that carry
// no Windows resources. Each table ends with a null text.
#pragma once

#include <cstdint>

namespace vmd::catalogue {

struct Entry {
  std::uint32_t id;
  const wchar_t* text;
};

extern const Entry kMessages[];
extern const Entry kStrings[];

}  // namespace vmd::catalogue
