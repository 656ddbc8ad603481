// Little-endian reads and writes on byte buffers, bounds-checked: a read
// outside the buffer yields 0, a write outside it is dropped.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace vmd {

inline std::uint64_t getLE(const std::uint8_t* p, std::size_t size, std::size_t at, int width) {
  if (at > size || size - at < static_cast<std::size_t>(width)) return 0;
  std::uint64_t v = 0;
  for (int i = width - 1; i >= 0; --i) v = (v << 8) | p[at + static_cast<std::size_t>(i)];
  return v;
}
inline std::uint8_t get8(const std::vector<std::uint8_t>& b, std::size_t at) {
  return static_cast<std::uint8_t>(getLE(b.data(), b.size(), at, 1));
}
inline std::uint16_t get16(const std::vector<std::uint8_t>& b, std::size_t at) {
  return static_cast<std::uint16_t>(getLE(b.data(), b.size(), at, 2));
}
inline std::uint32_t get32(const std::vector<std::uint8_t>& b, std::size_t at) {
  return static_cast<std::uint32_t>(getLE(b.data(), b.size(), at, 4));
}
inline std::uint64_t get64(const std::vector<std::uint8_t>& b, std::size_t at) {
  return getLE(b.data(), b.size(), at, 8);
}

inline void putLE(std::uint8_t* p, std::size_t size, std::size_t at, int width, std::uint64_t v) {
  if (at > size || size - at < static_cast<std::size_t>(width)) return;
  for (int i = 0; i < width; ++i) p[at + static_cast<std::size_t>(i)] = static_cast<std::uint8_t>(v >> (8 * i));
}
// The same on a raw field the caller knows holds the width.
inline std::uint16_t get16(const std::uint8_t* p) { return static_cast<std::uint16_t>(getLE(p, 2, 0, 2)); }
inline std::uint32_t get32(const std::uint8_t* p) { return static_cast<std::uint32_t>(getLE(p, 4, 0, 4)); }
inline std::uint64_t get64(const std::uint8_t* p) { return getLE(p, 8, 0, 8); }
inline void put16(std::uint8_t* p, std::uint64_t v) { putLE(p, 2, 0, 2, v); }
inline void put32(std::uint8_t* p, std::uint64_t v) { putLE(p, 4, 0, 4, v); }
inline void put64(std::uint8_t* p, std::uint64_t v) { putLE(p, 8, 0, 8, v); }

inline void put8(std::vector<std::uint8_t>& b, std::size_t at, std::uint64_t v) { putLE(b.data(), b.size(), at, 1, v); }
inline void put16(std::vector<std::uint8_t>& b, std::size_t at, std::uint64_t v) { putLE(b.data(), b.size(), at, 2, v); }
inline void put32(std::vector<std::uint8_t>& b, std::size_t at, std::uint64_t v) { putLE(b.data(), b.size(), at, 4, v); }
inline void put64(std::vector<std::uint8_t>& b, std::size_t at, std::uint64_t v) { putLE(b.data(), b.size(), at, 8, v); }

// 32-bit wrapping sum of the bytes from `from` to the end.
inline std::uint32_t byteSum(const std::vector<std::uint8_t>& b, std::size_t from) {
  std::uint32_t sum = 0;
  for (std::size_t i = from; i < b.size(); ++i) sum += b[i];
  return sum;
}

}  // namespace vmd
