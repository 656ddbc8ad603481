// vddinfo on Linux: arguments arrive as UTF-8.
#include <string>
#include <vector>

#include "base/text_codec.h"
#include "descriptor/descriptor_tool.h"
#include "descriptor/stdio_files.h"
#include "platform/host.h"

namespace {

class NoKeys : public vmd::KeyReader {
 public:
  int readKey() override { return -1; }
};

}  // namespace

int main(int argc, char** argv) {
  std::vector<std::wstring> text;
  for (int i = 0; i < argc; ++i) text.push_back(vmd::fromUtf8(argv[i]));
  std::vector<wchar_t*> args;
  for (std::wstring& t : text) args.push_back(t.data());
  args.push_back(nullptr);

  const auto streams = vmd::makeHostStreams();
  const auto catalog = vmd::makeHostCatalog();
  NoKeys keys;
  vmd::Output out(*streams, *catalog, keys);
  vmd::StdioFiles files;
  return vmd::runDescriptorReader(argc, args.data(), files, out);
}
