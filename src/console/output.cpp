#include "console/output.h"

#include <vector>

namespace vmd {

void Output::message(Stream s, std::uint32_t id, std::initializer_list<const wchar_t*> inserts) {
  std::vector<const wchar_t*> args(inserts);
  std::optional<std::wstring> text = catalog_.formatMessage(id, args);
  if (!text || text->empty()) return;
  std::size_t end = text->size();
  while (end > 0 && ((*text)[end - 1] == L'\r' || (*text)[end - 1] == L'\n')) --end;
  if (end != text->size()) {
    text->resize(end);
    text->push_back(L'\n');
  }
  const bool direct = s == Stream::Out ? direct_.out : direct_.err;
  if (direct && streams_.writeConsole(s, *text)) return;
  streams_.write(s, *text);
}

bool Output::confirm(std::wstring_view prompt) {
  streams_.write(Stream::Out, std::wstring(prompt));
  const int key = keys_.readKey();
  streams_.write(Stream::Out, L"\n\n");
  return key == L'Y' || key == L'y';
}

}  // namespace vmd
