// The one codec between the program's wide text and bytes: UTF-16LE for the
// controller's records and the files, UTF-8 for the Linux console and the
// simulated machine's state. wchar_t is UTF-16 on Windows and UTF-32 on Linux.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace vmd {

// Number of UTF-16 code units `text` takes on the wire.
std::size_t utf16Length(std::wstring_view text);

// Appends `text` as UTF-16LE, without a terminator.
void appendUtf16(std::vector<std::uint8_t>& out, std::wstring_view text);

// Writes `text` as UTF-16LE followed by a zero code unit into out[0, room);
// code units past `room` are left out. Returns the bytes the text and its
// terminator take, so a result above `room` says they did not fit.
std::size_t putUtf16z(std::uint8_t* out, std::size_t room, std::wstring_view text);

// Reads a zero-terminated UTF-16LE string from data[offset, limit); reading
// stops at the terminator or at `limit`, whichever comes first, and never
// reads past `size`.
std::wstring readUtf16z(const std::uint8_t* data, std::size_t size, std::size_t offset,
                        std::size_t limit = SIZE_MAX);

std::string toUtf8(std::wstring_view text);
std::wstring fromUtf8(std::string_view text);

// ASCII-only case folding, as the runtime's wide compare in its default locale;
// for any character type, so narrow and UTF-16 text fold alike.
template <typename C>
constexpr C asciiUpper(C c) {
  return (c >= C('a') && c <= C('z')) ? static_cast<C>(c - 32) : c;
}
template <typename C>
constexpr C asciiLower(C c) {
  return (c >= C('A') && c <= C('Z')) ? static_cast<C>(c + 32) : c;
}
bool equalsNoCase(std::wstring_view a, std::wstring_view b);
int compareNoCase(std::wstring_view a, std::wstring_view b);

}  // namespace vmd
