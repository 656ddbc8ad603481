#include "platform/platform.h"
#include "sim/sim_services.h"

#include <stdexcept>

#include "sim/controller_model.h"
#include "sim/hex_text.h"

#include "base/text_codec.h"

namespace vmd::sim {

namespace {

std::string stripSlash(std::string s) {
  while (s.size() > 3 && s.back() == '\\') s.pop_back();
  return s;
}

Bytes describedHead(const FileEntry& f) {
  if (f.head) return *f.head;
  if (f.image) {
    const std::uint8_t format = f.image->format == "smart" ? 1 : f.image->format == "compr" ? 2 : 0;
    return imageFileHead(format, f.image->diskSize, static_cast<std::uint8_t>(f.image->level));
  }
  return {};
}

// A file's length: its "size", else a PLAIN image's disk size, else the length of its head.
std::uint64_t describedSize(const FileEntry& f, const Bytes& head) {
  if (f.size) return *f.size;
  if (!f.head && f.image && f.image->format == "plain") return f.image->diskSize;
  return head.size();
}

RegKey* findKey(World& w, const std::string& name) {
  for (RegKey& k : w.registry)
    if (sameNoCase(k.name, name)) return &k;
  return nullptr;
}

// An open registry key: values by index in the order written.
class SimKey : public Registry::Key {
 public:
  SimKey(Machine& m, std::string key) : m_(m), key_(std::move(key)) {}
  SysResult<Registry::Value> enumValue(std::uint32_t index, std::uint32_t nameChars, std::uint32_t dataBytes) override {
    using Read = SysResult<Registry::Value>;
    RegKey* k = findKey(m_.world, key_);
    if (!k || index >= k->values.size()) return Read::failure(syserr::NoMoreItems);
    const RegValue& v = k->values[index];
    const std::wstring name = fromUtf8(v.name);
    if (name.size() + 1 > nameChars || v.data.size() > dataBytes) return Read::failure(syserr::MoreData);
    return Read::success({name, v.type, v.data});
  }
  SysStatus deleteValue(const std::wstring& wname) override {
    const std::string name = toUtf8(wname);
    RegKey* k = findKey(m_.world, key_);
    if (!k) return SysStatus::failure(syserr::FileNotFound);
    for (auto it = k->values.begin(); it != k->values.end(); ++it)
      if (sameNoCase(it->name, name)) {
        k->values.erase(it);
        return SysStatus::success();
      }
    return SysStatus::failure(syserr::FileNotFound);
  }
  SysStatus setBinary(const std::wstring& wname, const Bytes& data) override {
    const std::string name = toUtf8(wname);
    RegKey* k = findKey(m_.world, key_);
    if (!k) {
      m_.world.registry.push_back({key_, {}});
      k = &m_.world.registry.back();
    }
    for (RegValue& v : k->values)
      if (sameNoCase(v.name, name)) {
        v.type = kRegBinary;
        v.data = data;
        return SysStatus::success();
      }
    k->values.push_back({name, kRegBinary, data});
    return SysStatus::success();
  }

 private:
  Machine& m_;
  std::string key_;
};

}  // namespace

std::string toHex(const Bytes& b) {
  std::string s;
  appendHexBytes(s, b.data(), b.size());
  return s;
}

Bytes fromHex(const std::string& s) {
  Bytes b;
  int hi = -1;
  for (char c : s) {
    int v;
    if (c >= '0' && c <= '9') v = c - '0';
    else if (c >= 'a' && c <= 'f') v = c - 'a' + 10;
    else if (c >= 'A' && c <= 'F') v = c - 'A' + 10;
    else if (c == ' ' || c == '\n' || c == '\t' || c == ':' || c == '-') continue;
    else throw std::runtime_error("bad hex text");
    if (hi < 0) {
      hi = v;
    } else {
      b.push_back(static_cast<std::uint8_t>(hi * 16 + v));
      hi = -1;
    }
  }
  if (hi >= 0) throw std::runtime_error("odd number of hex digits");
  return b;
}

FileEntry* SimFiles::findFile(World& w, const std::string& path) {
  const std::string key = lowerAscii(stripSlash(path));
  for (FileEntry& f : w.files)
    if (lowerAscii(stripSlash(f.path)) == key) return &f;
  return nullptr;
}

SysResult<std::uint32_t> SimFiles::attributes(const std::wstring& wpath) {
  using Attributes = SysResult<std::uint32_t>;
  const std::string path = toUtf8(wpath);
  if (FileEntry* f = findFile(m_.world, path)) {
    // Attributes written as all ones read as the failure they spell.
    if (f->attributes == InvalidFileAttributes) return Attributes::failure(syserr::AccessDenied, InvalidFileAttributes);
    if (f->attributes) return Attributes::success(*f->attributes);
    return Attributes::success(f->directory ? fileattr::Directory : fileattr::Normal);
  }
  // The root of a mounted drive is a directory.
  if (path.size() == 3 && path[1] == ':' && path[2] == '\\') {
    const char l = static_cast<char>(path[0] & ~0x20);
    for (const Drive& d : m_.world.drives)
      if (d.letter == l) {
        const std::uint32_t attrs = d.rootAttributes.value_or(fileattr::Directory);
        if (attrs == InvalidFileAttributes) return Attributes::failure(syserr::AccessDenied, InvalidFileAttributes);
        return Attributes::success(attrs);
      }
    for (const Volume& v : m_.world.volumes)
      if (v.disk)
        for (const std::string& mp : v.mountPoints)
          if (mp.size() == 3 && static_cast<char>(mp[0] & ~0x20) == l && mp[1] == ':')
            return Attributes::success(fileattr::Directory);
  }
  return Attributes::failure(syserr::FileNotFound, InvalidFileAttributes);
}

SysResult<std::uint64_t> SimFiles::fileSize(const std::wstring& wpath) {
  const std::string path = toUtf8(wpath);
  FileEntry* f = findFile(m_.world, path);
  if (!f || f->directory) return SysResult<std::uint64_t>::failure(syserr::FileNotFound);
  return SysResult<std::uint64_t>::success(describedSize(*f, describedHead(*f)));
}

SysResult<Bytes> SimFiles::readHead(const std::wstring& wpath, std::uint32_t count) {
  const std::string path = toUtf8(wpath);
  FileEntry* f = findFile(m_.world, path);
  if (!f || f->directory) return SysResult<Bytes>::failure(syserr::FileNotFound);
  Bytes head = describedHead(*f);
  const std::uint64_t size = describedSize(*f, head);
  // Bytes past the described head read as zeros, up to the file's size.
  const std::uint64_t n = size < count ? size : count;
  head.resize(static_cast<std::size_t>(n), 0);
  return SysResult<Bytes>::success(std::move(head));
}

SysStatus SimFiles::writeWhole(const std::wstring& wpath, const Bytes& data) {
  const std::string path = toUtf8(wpath);
  FileEntry* f = findFile(m_.world, path);
  if (f && (f->directory || (f->attributes.value_or(0) & 1))) return SysStatus::failure(syserr::OpenFailed);
  if (!f) {
    m_.world.files.push_back({});
    f = &m_.world.files.back();
    f->path = path;
  }
  f->image.reset();
  f->size = data.size();
  f->head = data;
  return SysStatus::success();
}

SysResult<bool> SimFiles::pathIsDirectory(const std::wstring& path) {
  const SysResult<std::uint32_t> a = attributes(path);
  return SysResult<bool>::success(a.ok && (a.value & fileattr::Directory) != 0);
}

SysResult<std::uint32_t> SimRegistry::readDword(const std::wstring& wkey, const std::wstring& wvalue) {
  using Dword = SysResult<std::uint32_t>;
  const std::string key = toUtf8(wkey), value = toUtf8(wvalue);
  RegKey* k = findKey(m_.world, key);
  if (!k) return Dword::failure(syserr::FileNotFound);
  for (const RegValue& v : k->values)
    if (sameNoCase(v.name, value)) {
      // Any type of 4 bytes reads, as RegQueryValueExW into a DWORD does;
      // a longer value does not fit, a shorter one is no DWORD.
      if (v.data.size() > 4) return Dword::failure(syserr::MoreData);
      if (v.data.size() < 4) return Dword::failure(syserr::InvalidData);
      return Dword::success(get32(v.data.data()));
    }
  return Dword::failure(syserr::FileNotFound);
}

SysResult<std::unique_ptr<Registry::Key>> SimRegistry::openForWrite(const std::wstring& wkey) {
  using Opened = SysResult<std::unique_ptr<Key>>;
  const std::string key = toUtf8(wkey);
  if (!findKey(m_.world, key)) return Opened::failure(syserr::FileNotFound);
  return Opened::success(std::make_unique<SimKey>(m_, key));
}

SysResult<std::vector<Registry::Value>> SimRegistry::readValues(const std::wstring& wkey) {
  const RegKey* k = findKey(m_.world, toUtf8(wkey));
  if (!k) return SysResult<std::vector<Value>>::failure(syserr::FileNotFound);
  std::vector<Value> values;
  for (const RegValue& v : k->values) values.push_back({fromUtf8(v.name), v.type, v.data});
  return SysResult<std::vector<Value>>::success(std::move(values));
}

SysResult<SystemInfo::Memory> SimSystem::memoryStatus() {
  const HostState& h = m_.world.host;
  return SysResult<Memory>::success({h.totalPhys, h.availPhys});
}

SysResult<std::wstring> SimSystem::windowsDirectory() {
  const std::string& dir = m_.world.host.windowsDirectory;
  if (dir.empty()) return SysResult<std::wstring>::failure(syserr::FileNotFound);
  return SysResult<std::wstring>::success(fromUtf8(dir));
}

SystemTime SimClock::systemTime() {
  // Civil date from the file time (days since 1601-01-01, proleptic Gregorian).
  const std::uint64_t ft = systemTimeAsFileTime();
  std::uint64_t ms = ft / 10000;
  const std::uint64_t msOfDay = ms % 86400000;
  const std::int64_t days = static_cast<std::int64_t>(ms / 86400000);
  SystemTime t{};
  // Days since 1970-01-01 (134774 days after 1601-01-01), shifted to an era
  // that starts on 0000-03-01.
  const std::int64_t z = days - 134774 + 719468;
  const std::int64_t era = z / 146097;
  const std::int64_t doe = z - era * 146097;
  const std::int64_t yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
  std::int64_t y = yoe + era * 400;
  const std::int64_t doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
  const std::int64_t mp = (5 * doy + 2) / 153;
  const std::int64_t d = doy - (153 * mp + 2) / 5 + 1;
  const std::int64_t mo = mp < 10 ? mp + 3 : mp - 9;
  if (mo <= 2) ++y;
  t.year = static_cast<std::uint16_t>(y);
  t.month = static_cast<std::uint16_t>(mo);
  t.day = static_cast<std::uint16_t>(d);
  t.dayOfWeek = static_cast<std::uint16_t>((ms / 86400000 + 1) % 7);  // 1601-01-01 was a Monday
  t.hour = static_cast<std::uint16_t>(msOfDay / 3600000);
  t.minute = static_cast<std::uint16_t>(msOfDay / 60000 % 60);
  t.second = static_cast<std::uint16_t>(msOfDay / 1000 % 60);
  t.milliseconds = static_cast<std::uint16_t>(msOfDay % 1000);
  return t;
}

std::uint64_t SimClock::systemTimeAsFileTime() { return m_.fileTime(); }

void SimClock::sleep(std::uint32_t milliseconds) {
  m_.sleep(milliseconds);
}

SysResult<std::int32_t> SimBroadcast::broadcast(std::uint32_t flags, std::uint32_t message, std::uint64_t wParam,
                                                const Bytes& record) {
  constexpr std::uint32_t kKnownFlags = 0x7FF;  // BSF_QUERY .. BSF_LUID
  if (flags & ~kKnownFlags) return SysResult<std::int32_t>::failure(syserr::InvalidParameter, -1);
  m_.world.broadcasts.push_back(BroadcastLog::of(flags, message, wParam, record));
  return SysResult<std::int32_t>::success(1);
}

SysResult<std::vector<std::uint32_t>> SimSystem::diskDriveSignatures() {
  std::vector<std::uint32_t> sig = m_.world.wmi.signatures;
  for (const SimDisk& d : m_.world.controller.disks)
    if (d.signature) sig.push_back(*d.signature);
  return SysResult<std::vector<std::uint32_t>>::success(std::move(sig));
}

}  // namespace vmd::sim
