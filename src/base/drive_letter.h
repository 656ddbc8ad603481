// Drive letters in paths, for narrow and wide text alike.
#pragma once

#include <string>
#include <type_traits>

#include "base/text_codec.h"

namespace vmd {

template <typename C>
constexpr bool isAsciiLetter(C c) {
  return (c >= C('A') && c <= C('Z')) || (c >= C('a') && c <= C('z'));
}

// The letter a drive-letter mount point names, upper case: "x:" and "x:\"
// give X; any other path (a folder, a volume name) gives 0.
template <typename Text>
constexpr auto mountPointLetter(const Text& mp) {
  using C = std::remove_cvref_t<decltype(mp[0])>;
  const bool shaped = (mp.size() == 2 || (mp.size() == 3 && mp[2] == C('\\'))) && mp[1] == C(':');
  return shaped && isAsciiLetter(mp[0]) ? asciiUpper(mp[0]) : C(0);
}

// A drive's root folder, "X:\\".
inline std::wstring driveRoot(wchar_t letter) { return {letter, L':', L'\\'}; }

}  // namespace vmd
