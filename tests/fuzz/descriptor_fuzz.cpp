// Random bytes as a disk descriptor file: the checker must stay inside them,
// and a file it accepts must be exactly what writing its record gives again.
// An input whose first byte is odd is wrapped in a correct header first, so
// the checks of the settings record itself are reached as often as the
// header's.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "base/bytes.h"
#include "settings/descriptor_file.h"
#include "settings/disk_settings.h"
#include "settings/settings_record.h"

namespace {

void check(bool ok) {
  if (!ok) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::vector<std::uint8_t> file;
  if (size > 0 && (data[0] & 1)) {
    vmd::Bytes record(data + 1, data + size);
    file = vmd::BuildDescriptorBytes(record, vmd::descriptor::Magic, 1, L'R');
  } else {
    file.assign(data, data + size);
  }
  // An exact-size heap copy, so a read past the end is caught.
  std::uint8_t* bytes = static_cast<std::uint8_t*>(std::malloc(file.size() ? file.size() : 1));
  if (!file.empty()) std::memcpy(bytes, file.data(), file.size());
  const vmd::DescriptorCheck c = vmd::CheckDescriptor(bytes, file.size());
  std::free(bytes);

  check(c.valid() == c.problem.empty());
  if (!c.valid()) return 0;
  vmd::Bytes record = c.record;
  vmd::DiskSettings settings;
  vmd::DiskSettingsFromRecord(record, settings);
  const vmd::Bytes again = vmd::BuildDescriptorBytes(record, c.magic, c.variantCode, c.driveLetter);
  check(again.size() == file.size());
  // Everything but the reserved bytes, which a reader does not look at.
  check(std::memcmp(again.data(), file.data(), vmd::descriptor::ReservedField) == 0);
  check(std::memcmp(again.data() + vmd::descriptor::HeaderBytes, file.data() + vmd::descriptor::HeaderBytes,
                    file.size() - vmd::descriptor::HeaderBytes) == 0);
  return 0;
}
