// Random argument vectors as the options of add: parsing and validation on a
// simulated machine must neither crash nor read astray, and settings that
// validation accepts must make a creation record the driver accepts.
//
// Input: byte 0 chooses the memory check and the disk's current letter; the
// rest is UTF-8 text split at NUL bytes into at most 48 arguments.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "controller/controller.h"
#include "settings/creation_record.h"
#include "settings/disk_options.h"
#include "settings/settings_validation.h"
#include "console/app.h"
#include "base/text_codec.h"
#include "sim/record_layout.h"
#include "sim/sim_platform.h"

namespace {

class DiscardStreams : public vmd::OutputStreams {
 public:
  void write(vmd::Stream, const std::wstring& text) override { written += text.size(); }
  std::size_t written = 0;
};

// The strings the options and checks print.
class FewStrings : public vmd::MessageCatalog {
 public:
  std::optional<std::wstring> formatMessage(std::uint32_t, const std::vector<const wchar_t*>&) override {
    return std::nullopt;
  }
  std::wstring loadString(std::uint32_t id) override {
    static const std::map<std::uint32_t, std::wstring> texts = {
        {116, L"KB"},
        {242, L"Error: file '%s' is invalid!\n"},
        {245, L"Error: file '%s' is invalid - \nno volume is mounted, or the volume is not suitable!\n"},
        {260, L"Warning: argument '%s' is unrecognized and ignored!\n"},
    };
    auto it = texts.find(id);
    return it == texts.end() ? std::wstring() : it->second;
  }
};

const vmd::sim::json& baseState() {
  static const vmd::sim::json state = [] {
    vmd::sim::json s = vmd::sim::Machine::defaultState();
    s["controller"]["im"] = {{"state", 0}, {"localState", 1}, {"unitSize", 4096}, {"freeUnits", 262144}};
    s["drives"].push_back({{"letter", "D"}, {"type", "fixed"}, {"fileSystem", "FAT32"}, {"freeBytes", 1ull << 34}});
    s["drives"].push_back({{"letter", "N"}, {"type", "remote"}, {"fileSystem", "NTFS"}});
    s["files"] = vmd::sim::json::parse(R"([
      {"path": "C:\\p.img", "image": {"format": "plain", "diskSize": 134217728}},
      {"path": "C:\\s.img", "image": {"format": "smart", "diskSize": 134217728}},
      {"path": "C:\\c.img", "image": {"format": "compr", "diskSize": 134217728, "level": 12}},
      {"path": "C:\\ro.img", "attributes": "0x21"},
      {"path": "C:\\z", "attributes": "0x4010"},
      {"path": "C:\\bad.img", "size": 511}
    ])");
    return s;
  }();
  return state;
}

void check(bool ok) {
  if (!ok) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const std::uint8_t control = data[0];
  std::vector<std::wstring> args;
  std::string piece;
  for (std::size_t i = 1; i < size && args.size() < 48; ++i) {
    if (data[i] == 0) {
      args.push_back(vmd::fromUtf8(piece));
      piece.clear();
    } else {
      piece += static_cast<char>(data[i]);
    }
  }
  if (!piece.empty() && args.size() < 48) args.push_back(vmd::fromUtf8(piece));
  // A command line holds no NUL and only Unicode code points.
  for (auto& a : args)
    for (wchar_t& c : a)
      if (c == 0 || static_cast<std::uint32_t>(c) > 0x10FFFF) c = L'?';
  std::vector<wchar_t*> argv;
  for (auto& a : args) argv.push_back(a.data());
  argv.push_back(nullptr);

  vmd::sim::Machine machine(baseState());
  DiscardStreams streams;
  FewStrings catalog;
  vmd::sim::SimPlatform sim(machine, streams, catalog, nullptr);
  vmd::Output io(streams, catalog, sim.keys);
  vmd::OptionScanner options(io);
  vmd::CVmDevControl controller(sim.platform.setup, sim.platform.io);
  controller.discover();
  vmd::App app{sim.platform, io, options, controller};

  vmd::DiskSettings s;
  std::uint32_t silent = 7, keep = 7;
  vmd::ParseDiskOptions(app, static_cast<int>(args.size()), argv.data(), s, silent, (control & 4) ? &keep : nullptr);
  check(silent <= 1);
  check(s.customFolderCount <= vmd::kMaxCustomFolders);

  const std::uint16_t current = (control & 2) ? static_cast<std::uint16_t>(L'A' + control % 26) : 0;
  if (!vmd::ValidateDiskSettings(app, s, (control & 1) != 0, current)) return 0;

  check(s.sizeMb >= 1 && s.sizeMb <= 1048576);
  check(s.physicalDriveSizeMb <= s.sizeMb);
  check(s.volumeLabel.size() <= 32);
  // Names the last folder slot holds are taken unchecked, so only validated
  // fields bound the record; it must still be what the driver accepts.
  const std::optional<vmd::Bytes> record = vmd::BuildCreationRecord(s, nullptr, sim.platform.clock, sim.platform.system);
  if (record) check(vmd::sim::checkRecord(*record).empty());
  return 0;
}
