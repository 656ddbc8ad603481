// vddinfo.exe: the runtime's wide entry splits the command line; files are
// read through the Win32 side of the platform.
#include "descriptor/descriptor_tool.h"
#include "platform/host.h"
#include "platform/win32/win32_platform.h"

namespace {

class NoKeys : public vmd::KeyReader {
 public:
  int readKey() override { return -1; }
};

}  // namespace

int wmain(int argc, wchar_t** argv) {
  const auto streams = vmd::makeHostStreams();
  const auto catalog = vmd::makeHostCatalog();
  NoKeys keys;
  vmd::Output out(*streams, *catalog, keys);
  const auto files = vmd::win32::makeFileService();
  return vmd::runDescriptorReader(argc, argv, *files, out);
}
