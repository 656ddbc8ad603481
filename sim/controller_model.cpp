#include "sim/controller_model.h"

#include <cstring>

#include "base/bytes.h"
#include "base/text_codec.h"
#include "controller/codes.h"
#include "platform/platform.h"
#include "sim/record_check.h"
#include "sim/record_view.h"

namespace vmd::sim {

namespace {

constexpr std::uint32_t kFileDeviceDisk = 7;

void writeHead(std::uint8_t* out, std::uint32_t target) {
  put32(out, 12);
  put32(out + 4, 12);
  out[8] = 0;
  out[9] = 0;
  out[10] = static_cast<std::uint8_t>(target);
  out[11] = 0;
}

// The path of an image file as the controller opens it: without the
// "\DosDevices\" of the record's form.
std::u16string openedPath(std::u16string path) {
  const std::u16string prefix = u"\\DosDevices\\";
  if (path.rfind(prefix, 0) == 0) path.erase(0, prefix.size());
  return path;
}

// What an image file of that format holds: the whole disk, or one sector
// that stands for the compressed file.
std::uint64_t imageFileSize(std::uint8_t format, std::uint64_t diskSize) { return format == 0 ? diskSize : 512; }

// The record's checksum, again after a change.
void reseal(RecordBytes& r) { put32(r.data() + 8, recordChecksum(r)); }

// "\??\X:" with its terminating zero, as UTF-16: the letter, or 0.
char16_t dosNameLetter(const std::uint8_t* in, std::uint32_t inSize) {
  if (inSize != 14) return 0;
  const char16_t expect[] = u"\\??\\";
  for (int i = 0; i < 4; ++i)
    if (in[2 * i] != expect[i] || in[2 * i + 1] != 0) return 0;
  const char16_t letter = asciiUpper(static_cast<char16_t>(in[8] | (in[9] << 8)));
  if (letter < u'A' || letter > u'Z' || in[10] != ':' || in[11] != 0 || in[12] != 0 || in[13] != 0) return 0;
  return letter;
}

// A disk that starts from a record runs with its size, Direct-IO and image.
void runFrom(SimDisk& d, const RecordView& r) {
  d.size = r.diskSize();
  d.directIo = r.directIo();
  d.image = static_cast<bool>(r.image());
}

std::uint32_t memoryMbOf(std::uint64_t bytes) { return static_cast<std::uint32_t>((bytes + 0xFFFFF) >> 20); }

// The address inside a request: port, path id and logical unit 0, a target below 128.
bool validAddress(const std::uint8_t* a) { return a[0] == 0 && a[1] == 0 && a[3] == 0 && a[2] < 128; }

}  // namespace

std::optional<std::uint32_t> diskHeadTarget(const std::uint8_t* in, std::uint32_t inSize) {
  if (!in || inSize != 12) return std::nullopt;
  if (get32(in) != 12 || get32(in + 4) != 12 || !validAddress(in + 8)) return std::nullopt;
  return in[10];
}

DiskFacts diskFacts(const SimDisk& disk) {
  DiskFacts f;
  f.index = disk.index;
  f.size = disk.size;
  f.directIo = disk.directIo;
  f.letter = disk.letter;
  f.signature = disk.signature.value_or(0);
  f.diskNumber = disk.diskNumber();
  if (disk.settings) {
    const RecordView r(*disk.settings);
    if (r.format()) {
      const FormatView fmt = r.formatView();
      f.fileSystem = fmt.fileSystem();
      f.clusterBytes = fmt.clusterBytes();
      f.serial = fmt.serial();
      f.label = fmt.label();
    }
  }
  return f;
}

RecordBytes imageFileHead(std::uint8_t format, std::uint64_t diskSize, std::uint8_t level) {
  RecordBytes h(512, 0);
  if (format == 1) {
    put64(h.data(), 0x6820224927880486ull);
    put64(h.data() + 40, diskSize);
  } else if (format == 2) {
    put64(h.data(), 0x8602113816328511ull);
    put32(h.data() + 20, level);
    put64(h.data() + 24, diskSize);
  } else {
    h[510] = 0x55;
    h[511] = 0xAA;
  }
  return h;
}

const ControllerModel::Row ControllerModel::kRows[] = {
    {ioctl::QueryControllerVersion, &ControllerModel::version, Shape::None, 0, false},
    {ioctl::QueryDiskBitmap, &ControllerModel::diskBitmap, Shape::None, 0, false},
    {ioctl::QueryDiskInfo, &ControllerModel::diskInfo, Shape::Head, 0, false},
    {ioctl::QueryDeviceNumber, &ControllerModel::deviceNumber, Shape::Head, 0, false},
    {ioctl::QueryDosNameTarget, &ControllerModel::dosNameTarget, Shape::DosText, 0, false},
    {ioctl::QueryDosDeviceOwner, &ControllerModel::dosDeviceOwner, Shape::DosName, 0, false},
    {ioctl::QueryDiskPresent, &ControllerModel::diskPresent, Shape::Head, 0, false},
    {ioctl::CreateDisk, &ControllerModel::createDisk, Shape::Record, 0, false},
    {ioctl::RemoveDisk, &ControllerModel::removeDisk, Shape::Pair, 0, false},
    {ioctl::ChangeDiskLetter, &ControllerModel::changeLetter, Shape::Pair, 0, false},
    {ioctl::ChangeDiskSettings, &ControllerModel::changeSettings, Shape::Record, 0, false},
    {ioctl::ApplyImageSettings, &ControllerModel::applyImageSettings, Shape::Wrapped, 40, false},
    {ioctl::ReinitializeDisk, &ControllerModel::reinitialize, Shape::Wrapped, 44, false},
    {ioctl::SaveDiskImage, &ControllerModel::saveImage, Shape::Wrapped, 40, false},
    {ioctl::QueryImStatus, &ControllerModel::imStatus, Shape::None, 0, true},
    {ioctl::SetImOptions, &ControllerModel::imOptions, Shape::SelfSized, 24, true},
    {ioctl::EnableIm, &ControllerModel::enableIm, Shape::None, 0, true},
    {ioctl::DisableIm, &ControllerModel::disableIm, Shape::None, 0, true},
    {ioctl::ReadDiskSettingsRecord, &ControllerModel::settingsRecord, Shape::Head, 0, false},
    {ioctl::QueryDiskStatus, &ControllerModel::statusRecord, Shape::Head, 0, false},
};

ControllerModel::Reply ControllerModel::handle(std::uint32_t code, const std::uint8_t* in, std::uint32_t inSize,
                                               std::uint8_t* out, std::uint32_t outSize) {
  advance();
  const Reply r = dispatch(code, {in, inSize, out, outSize});
  advance();  // a delay of 0 takes effect with the request itself
  return r;
}

ControllerModel::Reply ControllerModel::dispatch(std::uint32_t code, const Request& raw) {
  for (const Row& row : kRows) {
    if (row.code != code) continue;
    if (row.im && !c_.im.supported) return {0, syserr::InvalidFunction};
    Request q = raw;
    if (!shaped(row, q)) return {0, syserr::InvalidParameter};
    return (this->*row.run)(q);
  }
  return {0, syserr::InvalidFunction};
}

// The driver's check of a request's input before it looks at its disks.
bool ControllerModel::shaped(const Row& row, Request& q) {
  const std::uint8_t* in = q.in;
  const std::uint32_t n = q.inSize;
  switch (row.shape) {
    case Shape::None:
      return true;
    case Shape::Record:
      return in && checkRecord(RecordBytes(in, in + n)).empty();
    case Shape::Head: {
      const std::optional<std::uint32_t> target = diskHeadTarget(in, n);
      q.target = target.value_or(0);
      return target.has_value();
    }
    case Shape::Pair:
      q.target = in && n == 16 ? in[10] : 0;
      return in && n == 16 && get32(in) == 16 && get32(in + 4) == 16 && validAddress(in + 8);
    case Shape::Wrapped:
      // {16, total = inSize, address, sub-record length = inSize - 16}, then a
      // sub-record that begins {fixed, its own length}.
      if (!in || n < 16 + row.fixed || get32(in) != 16 || get32(in + 4) != n || get32(in + 12) != n - 16) return false;
      q.target = in[10];
      return validAddress(in + 8) && get32(in + 16) == row.fixed && get32(in + 20) == n - 16;
    case Shape::SelfSized:
      return in && n == row.fixed && get32(in) == row.fixed;
    case Shape::DosText:
      return in && n >= 2 && n % 2 == 0 && in[n - 1] == 0 && in[n - 2] == 0;
    case Shape::DosName:
      return in && n == 14 && in[12] == 0 && in[13] == 0;
  }
  return false;
}

ControllerModel::Reply ControllerModel::version(const Request& q) {
  if (!q.out || q.outSize < 12) return {0, syserr::InsufficientBuffer};
  put32(q.out, c_.versionWord);
  put32(q.out + 4, c_.secondWord);
  put32(q.out + 8, c_.variantCode);
  return {12, 0};
}

ControllerModel::Reply ControllerModel::diskBitmap(const Request& q) {
  if (!q.out || q.outSize < 16) return {0, syserr::InsufficientBuffer};
  std::memset(q.out, 0, 16);
  for (const SimDisk& d : c_.disks)
    if (d.index < 128) q.out[d.index / 8] = static_cast<std::uint8_t>(q.out[d.index / 8] | (1u << (d.index % 8)));
  return {16, 0};
}

ControllerModel::Reply ControllerModel::diskInfo(const Request& q) {
  if (!q.out || q.outSize < 32) return {0, syserr::InsufficientBuffer};
  const SimDisk* d = c_.findDisk(q.target);
  if (!d) return {0, syserr::FileNotFound};
  std::uint8_t* out = q.out;
  std::memset(out, 0, 32);
  writeHead(out, q.target);  // the head comes back, then the disk's own fields
  out[14] = d->image ? 1 : 0;
  out[15] = d->good ? 1 : 0;
  put64(out + 16, d->size);
  out[24] = d->directIo ? 1 : 0;
  out[25] = d->directIo ? static_cast<std::uint8_t>(d->letter) : 0;
  return {32, 0};
}

ControllerModel::Reply ControllerModel::deviceNumber(const Request& q) {
  if (!q.out || q.outSize < 12) return {0, syserr::InsufficientBuffer};
  const SimDisk* d = c_.findDisk(q.target);
  if (!d) return {0, syserr::FileNotFound};
  // A Direct-IO disk is not in the system's storage stack.
  if (d->directIo) return {0, syserr::NotSupported};
  put32(q.out, kFileDeviceDisk);
  put32(q.out + 4, d->diskNumber());
  put32(q.out + 8, 0);
  return {12, 0};
}

ControllerModel::Reply ControllerModel::dosNameTarget(const Request& q) {
  if (!q.out || q.outSize < 12) return {0, syserr::InsufficientBuffer};
  const char16_t letter = dosNameLetter(q.in, q.inSize);
  if (!letter) return {0, syserr::FileNotFound};
  std::optional<std::uint32_t> owner;
  if (c_.dosNameOwners) {
    for (const auto& [l, target] : *c_.dosNameOwners)
      if (asciiUpper(l) == letter && target) owner = *target;
  } else {
    for (const SimDisk& d : c_.disks)
      if (d.directIo && d.deviceVisible() && asciiUpper(d.letter) == letter) owner = d.index;
  }
  if (!owner) return {0, syserr::FileNotFound};
  writeHead(q.out, *owner);
  return {12, 0};
}

ControllerModel::Reply ControllerModel::dosDeviceOwner(const Request& q) {
  if (!q.out || q.outSize < 12) return {0, syserr::InsufficientBuffer};
  const char16_t letter = dosNameLetter(q.in, q.inSize);
  if (!letter) return {0, syserr::InvalidParameter};
  const std::optional<std::uint8_t> owner = host_.dosDeviceOwner(letter);
  if (!owner || !c_.findDisk(*owner)) return {0, syserr::FileNotFound};
  writeHead(q.out, *owner);
  return {12, 0};
}

ControllerModel::Reply ControllerModel::diskPresent(const Request& q) {
  if (!q.out || q.outSize < 4) return {0, syserr::InsufficientBuffer};
  put32(q.out, c_.findDisk(q.target) ? 1 : 0);
  return {4, 0};
}

std::uint64_t ControllerModel::dueAfter(std::optional<std::int64_t> own, std::int64_t general) {
  const std::int64_t delay = own.value_or(general);
  if (delay < 0) return kNeverDue;
  return host_.nowMs() + static_cast<std::uint64_t>(delay);
}

// The system numbers a new disk after the disks it has.
std::uint32_t ControllerModel::newDiskNumber(std::uint8_t index) const {
  std::uint32_t number = 1u + index;
  for (bool taken = true; taken;) {
    taken = false;
    for (const SimDisk& o : c_.disks)
      if (!o.directIo && o.diskNumber() == number) taken = true;
    if (taken) ++number;
  }
  return number;
}

ControllerModel::Reply ControllerModel::createDisk(const Request& q) {
  if (!q.out || q.outSize < 12) return {0, syserr::InsufficientBuffer};
  RecordBytes record(q.in, q.in + q.inSize);
  const RecordView view(record);
  std::uint32_t index = view.index();
  if (index == 255) {
    index = 128;
    for (std::uint32_t i = 0; i < 128 && index == 128; ++i)
      if (!c_.findDisk(i)) index = i;
    if (index == 128) return {0, syserr::NotEnoughMemory};
  } else if (index >= 128) {
    return {0, syserr::InvalidParameter};
  } else if (c_.findDisk(index)) {
    return {0, syserr::AlreadyExists};
  }
  std::uint64_t usedMb = memoryMbOf(view.diskSize());
  for (const SimDisk& d : c_.disks) usedMb += memoryMbOf(d.size);
  const std::uint64_t limitMb = c_.memoryLimitMb.value_or(host_.physicalMemoryMb());
  if (usedMb > limitMb) return {0, syserr::DiskFull};

  SimDisk d;
  d.index = static_cast<std::uint8_t>(index);
  record[24] = d.index;
  reseal(record);
  runFrom(d, view);
  d.signature = view.signature();
  if (!d.directIo) d.systemDiskNumber = newDiskNumber(d.index);
  d.settings = std::move(record);
  d.phase = DiskPhase::Arriving;
  d.dueMs = dueAfter(std::nullopt, c_.timing.volumeAfterMs);
  auto at = c_.disks.begin();
  while (at != c_.disks.end() && at->index < d.index) ++at;
  c_.disks.insert(at, std::move(d));
  writeHead(q.out, index);
  return {12, 0};
}

ControllerModel::Reply ControllerModel::removeDisk(const Request& q) {
  // After the address: 0, "only ask" and "save first" (each 0 or 1), 0.
  const std::uint8_t* in = q.in;
  if (in[12] != 0 || in[15] != 0 || in[13] > 1 || in[14] > 1) return {0, syserr::InvalidParameter};
  SimDisk* d = c_.findDisk(q.target);
  if (!d) return {0, syserr::FileNotFound};
  // A disk that holds a paging file cannot go.
  if (d->pagingFile) return {0, syserr::AccessDenied};
  if (in[13]) return {0, 0};  // only asked whether it could
  if (d->leaving()) return {0, 0};
  if (in[14] && d->settings) {
    const RecordView r(*d->settings);
    const ImageView image = r.imageView();
    if (r.image() && (image.flags() & 0x5030u) != 0) {  // an image that is saved, not Load Only
      const RecordBytes head = imageFileHead(image.format(), d->size, image.level());
      if (const std::uint32_t e = host_.writeFile(openedPath(image.path()), head, imageFileSize(image.format(), d->size)))
        return {0, e};
    }
  }
  d->phase = DiskPhase::Leaving;
  d->dueMs = dueAfter(d->goneAfterMs, c_.timing.goneAfterMs);
  return {0, 0};
}

ControllerModel::Reply ControllerModel::changeLetter(const Request& q) {
  const auto oldLetter = asciiUpper(static_cast<char16_t>(get16(q.in + 12)));
  const auto newLetter = asciiUpper(static_cast<char16_t>(get16(q.in + 14)));
  SimDisk* d = c_.findDisk(q.target);
  if (!d) return {0, syserr::FileNotFound};
  if (!d->directIo) return {0, syserr::InvalidFunction};
  if (newLetter && (newLetter < u'A' || newLetter > u'Z')) return {0, syserr::InvalidParameter};
  if (oldLetter != asciiUpper(d->letter)) return {0, syserr::InvalidParameter};
  if (oldLetter == newLetter) return {0, 0};
  if (newLetter && !host_.letterFree(newLetter)) return {0, syserr::AlreadyExists};
  if (d->deviceVisible() && !host_.diskLetterChanged(d->index, oldLetter, newLetter)) return {0, syserr::AccessDenied};
  d->letter = newLetter;
  if (d->settings && d->settings->size() >= 64) {  // the record remembers the letter for a restart
    put16(d->settings->data() + 26, newLetter);
    reseal(*d->settings);
  }
  return {0, 0};
}

ControllerModel::Reply ControllerModel::changeSettings(const Request& q) {
  // The new record names its disk by its index; the controller keeps it
  // at once, and what a running disk cannot take waits for a restart.
  RecordBytes record(q.in, q.in + q.inSize);
  SimDisk* d = c_.findDisk(RecordView(record).index());
  if (!d) return {0, syserr::FileNotFound};
  // The running disk goes on as it is: its live status keeps the old
  // settings until the restart takes the new ones.
  if (!d->status && d->settings) d->status = d->settings;
  d->settings = record;
  d->pendingSettings = std::move(record);
  return {0, 0};
}

ControllerModel::Reply ControllerModel::applyImageSettings(const Request& q) {
  SimDisk* d = c_.findDisk(q.target);
  if (!d) return {0, syserr::FileNotFound};
  // Image settings in effect now: an image file is associated when the sub-record names one.
  d->image = q.inSize - 16 > 40 && get16(q.in + 16 + 36) != 0;
  return {0, 0};
}

ControllerModel::Reply ControllerModel::reinitialize(const Request& q) {
  // A format section: the volume gets a fresh file system with the
  // section's code, cluster, serial and label.
  const RecordBytes spec(q.in + 16, q.in + q.inSize);
  const FormatView fresh(spec, {0, spec.size()});
  if (42 + fresh.labelBytes() > spec.size()) return {0, syserr::InvalidParameter};
  SimDisk* d = c_.findDisk(q.target);
  if (!d) return {0, syserr::FileNotFound};
  if (!d->settled()) return {0, syserr::NotReady};
  DiskFacts f = diskFacts(*d);
  f.fileSystem = fresh.fileSystem();
  f.clusterBytes = fresh.clusterBytes();
  f.serial = fresh.serial();
  f.label = fresh.labelBytes() ? ByteView(spec).text(42, 42 + fresh.labelBytes()) : std::u16string();
  host_.diskReinitialized(f);
  return {0, 0};
}

ControllerModel::Reply ControllerModel::saveImage(const Request& q) {
  // An image sub-record: the file it names in its format and level, else
  // the disk's own image file in the format its image section keeps (the
  // sub-record's own when its flags say 0x1).
  const RecordBytes sub(q.in + 16, q.in + q.inSize);
  const ImageView asked(sub, {0, sub.size()});
  if (38 + asked.pathBytes() > sub.size()) return {0, syserr::InvalidParameter};
  SimDisk* d = c_.findDisk(q.target);
  if (!d) return {0, syserr::FileNotFound};
  std::u16string path;
  std::uint8_t format = asked.format(), level = asked.level();
  if (asked.pathBytes()) {
    path = ByteView(sub).text(38, 38 + asked.pathBytes());
  } else {
    const std::optional<RecordBytes>& r = d->status ? d->status : d->settings;
    if (!r || !RecordView(*r).image()) return {0, syserr::InvalidParameter};  // no file named, none associated
    const ImageView own = RecordView(*r).imageView();
    path = own.path();
    if ((asked.flags() & 1) == 0) {
      format = own.format();
      level = own.level();
    }
  }
  if (format > 2) return {0, syserr::InvalidParameter};
  if (const std::uint32_t e =
          host_.writeFile(openedPath(path), imageFileHead(format, d->size, level), imageFileSize(format, d->size)))
    return {0, e};
  return {0, 0};
}

void ControllerModel::arrive(SimDisk& d) {
  d.phase = DiskPhase::Present;
  d.dueMs = 0;
  if (d.directIo && d.settings && d.settings->size() >= 64) {
    // The controller gives a Direct-IO disk the letter its record asks for, if free.
    const auto wish = asciiUpper(RecordView(*d.settings).letter());
    d.letter = (wish >= u'A' && wish <= u'Z' && host_.letterFree(wish)) ? wish : 0;
  }
  host_.diskArrived(diskFacts(d));
}

void ControllerModel::leave(std::size_t at) {
  const std::uint8_t index = c_.disks[at].index;
  c_.disks.erase(c_.disks.begin() + static_cast<std::ptrdiff_t>(at));
  host_.diskRemoved(index);
}

void ControllerModel::advance() {
  const std::uint64_t now = host_.nowMs();
  for (std::size_t i = 0; i < c_.disks.size();) {
    SimDisk& d = c_.disks[i];
    if (d.dueBy(now)) {
      if (d.leaving()) {
        leave(i);
        continue;
      }
      arrive(d);
    }
    ++i;
  }
}

void ControllerModel::settle() {
  for (SimDisk& d : c_.disks)
    if (!d.settled() && d.dueMs != kNeverDue) d.dueMs = 0;
  advance();
}

void ControllerModel::restart() {
  for (std::size_t i = 0; i < c_.disks.size();) {
    SimDisk& d = c_.disks[i];
    if (d.leaving()) {
      leave(i);
      continue;
    }
    host_.diskRemoved(d.index);
    if (d.pendingSettings) {
      d.settings = std::move(d.pendingSettings);
      d.pendingSettings.reset();
      runFrom(d, RecordView(*d.settings));
    }
    if (d.status && !d.statusBroken) d.status.reset();  // a fresh start reports its settings
    ++i;
  }
  for (SimDisk& d : c_.disks) arrive(d);
  // Invisible Memory settings waiting for a restart take effect.
  ImState& im = c_.im;
  im.reserveInEffect = im.reserveConfigured;
  im.quotaInEffect = im.quotaConfigured;
  im.hiberDriveInEffect = im.hiberDriveConfigured;
  im.hiberInEffect = im.hiberConfigured;
  im.stated |= ImState::kReserveInEffect | ImState::kQuotaInEffect | ImState::kHiberDriveInEffect |
               ImState::kHiberInEffect;
}

ControllerModel::Reply ControllerModel::imStatus(const Request& q) {
  const ImState& im = c_.im;
  // An older manager answers with its shorter record.
  const std::uint32_t n = im.recordSize < 72 ? im.recordSize : 72;
  if (!q.out || q.outSize < n) return {0, syserr::InsufficientBuffer};
  std::uint8_t rec[72] = {};
  const std::uint32_t fields[][2] = {
      {0, im.recordSize},          {4, im.unitSize},           {8, im.firstUnit},
      {12, im.endUnit},            {16, im.freeUnits},         {20, im.state},
      {24, im.reserveInEffect},    {28, im.quotaInEffect},     {32, im.hiberDriveInEffect},
      {36, im.reserveConfigured},  {40, im.quotaConfigured},   {44, im.hiberDriveConfigured},
      {48, im.localState},         {52, im.hiberInEffect},     {60, im.hiberConfigured}};
  for (const auto& f : fields) put32(rec + f[0], f[1]);
  std::memcpy(q.out, rec, n);
  return {n, 0};
}

ControllerModel::Reply ControllerModel::imOptions(const Request& q) {
  ImState& im = c_.im;
  const std::uint64_t unit = im.unitSize;
  auto units = [&](std::uint32_t mb) { return static_cast<std::uint32_t>(unit ? (std::uint64_t{mb} << 20) / unit : 0); };
  // While this product uses Invisible Memory, changes wait for a restart.
  const bool inUse = im.state == 0 && im.localState != 0;
  im.reserveConfigured = units(get32(q.in + 4));
  im.quotaConfigured = units(get32(q.in + 8));
  im.hiberDriveConfigured = get32(q.in + 12);
  im.hiberConfigured = get32(q.in + 16);
  im.stated |= ImState::kReserveConfigured | ImState::kQuotaConfigured | ImState::kHiberDriveConfigured |
               ImState::kHiberConfigured;
  if (!inUse) {
    im.stated |= ImState::kReserveInEffect | ImState::kQuotaInEffect | ImState::kHiberDriveInEffect |
                 ImState::kHiberInEffect;
    im.reserveInEffect = im.reserveConfigured;
    im.quotaInEffect = im.quotaConfigured;
    im.hiberDriveInEffect = im.hiberDriveConfigured;
    im.hiberInEffect = im.hiberConfigured;
  }
  return {0, 0};
}

ControllerModel::Reply ControllerModel::enableIm(const Request&) {
  c_.im.localState = 1;
  c_.im.stated |= ImState::kLocalState;
  return {0, 0};
}

ControllerModel::Reply ControllerModel::disableIm(const Request&) {
  c_.im.localState = 0;
  c_.im.stated |= ImState::kLocalState;
  return {0, 0};
}

ControllerModel::Reply ControllerModel::settingsRecord(const Request& q) { return record(q, true); }
ControllerModel::Reply ControllerModel::statusRecord(const Request& q) { return record(q, false); }

// The settings record behind the request's head, or the live status alone.
ControllerModel::Reply ControllerModel::record(const Request& q, bool withHead) {
  const SimDisk* d = c_.findDisk(q.target);
  if (!d) return {0, syserr::FileNotFound};
  const std::optional<RecordBytes>& record = (withHead || !d->status) ? d->settings : d->status;
  if (!record || (!withHead && d->statusBroken)) return {0, syserr::GenFailure};
  const std::size_t head = withHead ? 12 : 0;
  const std::size_t needed = head + record->size();
  if (!q.out || q.outSize < needed) return {0, c_.shortBufferError};
  if (withHead) {
    put32(q.out, 12);
    put32(q.out + 4, static_cast<std::uint32_t>(needed));
    std::memcpy(q.out + 8, q.in + 8, 4);
  }
  if (!record->empty()) std::memcpy(q.out + head, record->data(), record->size());
  return {static_cast<std::uint32_t>(needed), 0};
}

}  // namespace vmd::sim
