#include "platform/message_text.h"

namespace vmd {

std::wstring expandMessageInserts(std::wstring_view t, const std::vector<const wchar_t*>& inserts) {
  std::wstring out;
  for (std::size_t i = 0; i < t.size(); ++i) {
    if (t[i] != L'%' || i + 1 >= t.size()) {
      out += t[i];
      continue;
    }
    const wchar_t c = t[++i];
    if (c >= L'1' && c <= L'9') {
      std::size_t n = static_cast<std::size_t>(c - L'0');
      if (i + 1 < t.size() && t[i + 1] >= L'0' && t[i + 1] <= L'9') n = n * 10 + static_cast<std::size_t>(t[++i] - L'0');
      if (i + 1 < t.size() && t[i + 1] == L'!') {
        const std::size_t close = t.find(L'!', i + 2);
        if (close != std::wstring_view::npos) i = close;
      }
      if (n <= inserts.size()) out += inserts[n - 1] ? inserts[n - 1] : L"(null)";
      continue;
    }
    switch (c) {
      case L'0': return out;
      case L'n': out += L"\r\n"; break;
      case L'r': out += L'\r'; break;
      case L't': out += L'\t'; break;
      default: out += c; break;  // %% %. %! %space and the rest
    }
  }
  return out;
}

}  // namespace vmd
