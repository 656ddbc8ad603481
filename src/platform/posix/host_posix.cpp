// Console and catalogue of the Linux build: UTF-8 on the standard streams,
// texts from the compiled-in catalogue.
#include <cerrno>
#include <cstdio>
#include <string>

#include <fcntl.h>
#include <unistd.h>

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

SysStatus replaceHostFile(const std::wstring& path, const std::string& bytes) {
  const std::string target = toUtf8(path);
  const std::string temporary = target + "." + std::to_string(::getpid()) + ".tmp";
  const int fd = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
  if (fd < 0) return {false, static_cast<std::uint32_t>(errno)};
  std::size_t done = 0;
  while (done < bytes.size()) {
    const ssize_t n = ::write(fd, bytes.data() + done, bytes.size() - done);
    if (n <= 0) break;
    done += static_cast<std::size_t>(n);
  }
  const int written = errno;
  const bool whole = done == bytes.size() && ::fsync(fd) == 0;
  if (::close(fd) == 0 && whole && ::rename(temporary.c_str(), target.c_str()) == 0) return {true, 0};
  const std::uint32_t error = static_cast<std::uint32_t>(done == bytes.size() ? errno : written);
  ::unlink(temporary.c_str());
  return {false, error ? error : static_cast<std::uint32_t>(EIO)};
}

std::unique_ptr<OutputStreams> makeHostStreams() { return std::make_unique<PosixStreams>(); }
std::unique_ptr<MessageCatalog> makeHostCatalog() { return std::make_unique<CompiledCatalog>(); }

}  // namespace vmd
