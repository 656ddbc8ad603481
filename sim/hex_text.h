// Lower-case hex text, as the state file and the request trace write
// numbers and bytes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace vmd::sim {

namespace hex_detail {
inline constexpr char kDigits[] = "0123456789abcdef";
// Each byte's two digits, so that bytes are written a byte a step.
struct Pairs {
  char pair[256][2] = {};
  constexpr Pairs() {
    for (int b = 0; b < 256; ++b) {
      pair[b][0] = kDigits[b >> 4];
      pair[b][1] = kDigits[b & 15];
    }
  }
};
inline constexpr Pairs kPairs;
}  // namespace hex_detail

// "0x" and eight digits.
inline void appendHex32(std::string& s, std::uint32_t v) {
  char text[10] = {'0', 'x'};
  for (int i = 0; i < 8; ++i) text[2 + i] = hex_detail::kDigits[(v >> (4 * (7 - i))) & 0xF];
  s.append(text, sizeof text);
}

// Two digits a byte.
inline void appendHexBytes(std::string& s, const std::uint8_t* p, std::size_t size) {
  const std::size_t at = s.size();
  s.resize(at + 2 * size);
  char* to = s.data() + at;
  for (std::size_t i = 0; i < size; ++i, to += 2) {
    to[0] = hex_detail::kPairs.pair[p[i]][0];
    to[1] = hex_detail::kPairs.pair[p[i]][1];
  }
}

}  // namespace vmd::sim
