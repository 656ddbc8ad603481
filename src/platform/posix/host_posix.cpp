// Console and catalogue of the Linux build: UTF-8 on the standard streams,
// texts from the compiled-in catalogue.
#include <cstdio>

#include "platform/host.h"
#include "platform/message_text.h"
#include "resources/catalogue_data.h"
#include "base/text_codec.h"

namespace vmd {

namespace {

class PosixStreams : public OutputStreams {
 public:
  void write(Stream stream, const std::wstring& text) override {
    FILE* f = stream == Stream::Out ? stdout : stderr;
    if (stream == Stream::Err) std::fflush(stdout);  // keep the two in the order written
    const std::string bytes = toUtf8(text);
    std::fwrite(bytes.data(), 1, bytes.size(), f);
    if (stream == Stream::Err) std::fflush(stderr);
  }
};

const wchar_t* find(const catalogue::Entry* table, std::uint32_t id) {
  for (const catalogue::Entry* e = table; e->text; ++e)
    if (e->id == id) return e->text;
  return nullptr;
}

class CompiledCatalog : public MessageCatalog {
 public:
  std::optional<std::wstring> formatMessage(std::uint32_t id, const std::vector<const wchar_t*>& inserts) override {
    const wchar_t* text = find(catalogue::kMessages, id);
    if (!text) return std::nullopt;
    return expandMessageInserts(text, inserts);
  }
  std::wstring loadString(std::uint32_t id) override {
    const wchar_t* text = find(catalogue::kStrings, id);
    return text ? std::wstring(text) : std::wstring();
  }
};

}  // namespace

std::unique_ptr<OutputStreams> makeHostStreams() { return std::make_unique<PosixStreams>(); }
std::unique_ptr<MessageCatalog> makeHostCatalog() { return std::make_unique<CompiledCatalog>(); }

}  // namespace vmd
