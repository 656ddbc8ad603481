// The shape a path of a backing or image file must have: a rule on the text
// alone, asked by the settings checks and by save.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "base/drive_letter.h"

namespace vmd {

// "X:\..." of at least 3 and at most maxLength - 1 characters, not ending in
// a backslash, with none of /:*?"<>| and no doubled backslash after "X:".
[[nodiscard]] inline bool IsValidFilePath(const std::wstring& path, std::uint32_t maxLength) {
  const std::size_t n = path.size();
  if (n < 3 || n > std::size_t{maxLength} - 1) return false;
  const wchar_t drive = path[0];
  if (!isAsciiLetter(drive) || path[1] != L':' || path[2] != L'\\') return false;
  if (path[n - 1] == L'\\') return false;
  const std::wstring_view rest = std::wstring_view(path).substr(2);
  if (rest.find_first_of(L"/:*?\"<>|") != std::wstring_view::npos) return false;
  return rest.find(L"\\\\") == std::wstring_view::npos;
}

}  // namespace vmd
