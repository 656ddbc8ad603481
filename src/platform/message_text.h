// FormatMessageW's insert rules, for the catalogue compiled into builds
// without a message table: %1..%99 (with an optional !printf-format!, taken
// as a string), %% %n %r %t %0 and "%<punctuation>".
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace vmd {

std::wstring expandMessageInserts(std::wstring_view text, const std::vector<const wchar_t*>& inserts);

}  // namespace vmd
