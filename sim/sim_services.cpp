#include "platform/platform.h"
#include "sim/sim_services.h"

#include <stdexcept>

#include "base/text_codec.h"

namespace vmd::sim {

namespace {

std::string stripSlash(std::string s) {
  while (s.size() > 3 && s.back() == '\\') s.pop_back();
  return s;
}

constexpr std::uint32_t kAttrDirectory = 0x10;
constexpr std::uint32_t kAttrNormal = 0x80;

void putLE(Bytes& b, std::size_t at, int width, std::uint64_t v) {
  for (int i = 0; i < width; ++i) b[at + static_cast<std::size_t>(i)] = static_cast<std::uint8_t>(v >> (8 * i));
}

// The first sector of an image file described by format, disk size and level.
Bytes imageHead(const json& image) {
  Bytes h(512, 0);
  const std::string format = lowerAscii(image.value("format", std::string("plain")));
  const std::uint64_t diskSize = parseNumber64(image.value("diskSize", json(0)));
  if (format == "smart") {
    putLE(h, 0, 8, 0x6820224927880486ull);
    putLE(h, 40, 8, diskSize);
  } else if (format == "compr") {
    putLE(h, 0, 8, 0x8602113816328511ull);
    putLE(h, 20, 4, parseNumber64(image.value("level", json(1))));
    putLE(h, 24, 8, diskSize);
  } else if (format == "plain") {
    h[510] = 0x55;
    h[511] = 0xAA;
  } else {
    throw std::runtime_error("unknown image format: " + format);
  }
  return h;
}

Bytes describedHead(const json& f) {
  if (f.contains("head")) return fromHex(f["head"].get<std::string>());
  if (f.contains("image")) return imageHead(f["image"]);
  return {};
}

// A file's length: its "size", else a PLAIN image's disk size, else the length of its head.
std::uint64_t describedSize(const json& f, const Bytes& head) {
  if (f.contains("size")) return parseNumber64(f["size"]);
  if (!f.contains("head") && f.contains("image") && lowerAscii(f["image"].value("format", std::string("plain"))) == "plain")
    return parseNumber64(f["image"].value("diskSize", json(0)));
  return head.size();
}

}  // namespace

std::string toHex(const Bytes& b) {
  static const char* d = "0123456789abcdef";
  std::string s;
  for (std::uint8_t x : b) {
    s += d[x >> 4];
    s += d[x & 15];
  }
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

json* SimFiles::findFile(Machine& m, const std::string& path) {
  const std::string key = lowerAscii(stripSlash(path));
  for (auto& f : m.state["files"])
    if (lowerAscii(stripSlash(f.value("path", std::string()))) == key) return &f;
  return nullptr;
}

std::uint32_t SimFiles::attributes(const std::wstring& wpath) {
  const std::string path = toUtf8(wpath);
  if (m_.fault("GetFileAttributesW", 0, path)) return InvalidFileAttributes;
  if (json* f = findFile(m_, path)) {
    if (f->contains("attributes")) return parseNumber((*f)["attributes"]);
    return f->value("directory", false) ? kAttrDirectory : kAttrNormal;
  }
  // The root of a mounted drive is a directory.
  if (path.size() == 3 && path[1] == ':' && path[2] == '\\') {
    for (const auto& d : m_.state["drives"]) {
      const std::string l = d.value("letter", std::string());
      if (!l.empty() && (l[0] | 0x20) == (path[0] | 0x20)) return d.value("rootAttributes", kAttrDirectory);
    }
  }
  return InvalidFileAttributes;
}

FileService::Size SimFiles::fileSize(const std::wstring& wpath) {
  const std::string path = toUtf8(wpath);
  if (auto e = m_.fault("GetFileSize", 0, path)) return {false, *e, 0};
  json* f = findFile(m_, path);
  if (!f || f->value("directory", false)) return {false, syserr::FileNotFound, 0};
  return {true, 0, describedSize(*f, describedHead(*f))};
}

std::optional<Bytes> SimFiles::readHead(const std::wstring& wpath, std::uint32_t count) {
  const std::string path = toUtf8(wpath);
  if (m_.fault("ReadFile", 0, path)) return std::nullopt;
  json* f = findFile(m_, path);
  if (!f || f->value("directory", false) || f->value("readFails", false)) return std::nullopt;
  Bytes head = describedHead(*f);
  const std::uint64_t size = describedSize(*f, head);
  // Bytes past the described head read as zeros, up to the file's size.
  const std::uint64_t n = size < count ? size : count;
  head.resize(static_cast<std::size_t>(n), 0);
  return head;
}

std::uint32_t SimFiles::writeWhole(const std::wstring& wpath, const Bytes& data) {
  const std::string path = toUtf8(wpath);
  if (m_.fault("CreateFileW", 0, path)) return syserr::OpenFailed;
  json* f = findFile(m_, path);
  if (f && (f->value("directory", false) || (parseNumber(f->value("attributes", json(0))) & 1)))
    return syserr::OpenFailed;
  if (!f) {
    m_.state["files"].push_back({{"path", path}});
    f = &m_.state["files"].back();
  }
  if (m_.fault("WriteFile", 0, path)) {
    (*f)["size"] = 0;
    (*f)["head"] = "";
    return syserr::WriteFault;
  }
  (*f)["size"] = data.size();
  (*f)["head"] = toHex(data);
  return 0;
}

bool SimFiles::pathIsDirectory(const std::wstring& path) {
  const std::uint32_t a = attributes(path);
  return a != InvalidFileAttributes && (a & kAttrDirectory);
}

std::optional<std::uint32_t> SimRegistry::readDword(const std::wstring& wkey, const std::wstring& wvalue) {
  const std::string key = toUtf8(wkey), value = toUtf8(wvalue);
  if (m_.fault("RegQueryValueExW", 0, key + "\\" + value)) return std::nullopt;
  const json& reg = m_.state["registry"];
  for (auto k = reg.begin(); k != reg.end(); ++k) {
    if (lowerAscii(k.key()) != lowerAscii(key)) continue;
    for (auto v = k->begin(); v != k->end(); ++v) {
      if (lowerAscii(v.key()) != lowerAscii(value)) continue;
      const json& e = v.value();
      if (e.is_object()) {
        if (e.value("type", std::string("REG_DWORD")) != "REG_DWORD") return std::nullopt;
        return parseNumber(e["data"]);
      }
      return parseNumber(e);
    }
  }
  return std::nullopt;
}

std::unique_ptr<Registry::Key> SimRegistry::openForWrite(const std::wstring& wkey, std::uint32_t& error) {
  const std::string key = toUtf8(wkey);
  if (auto e = m_.fault("RegOpenKeyExW", 0, key)) {
    error = *e;
    return nullptr;
  }
  error = syserr::NotSupported;
  return nullptr;
}

std::optional<SystemInfo::Memory> SimSystem::memoryStatus() {
  if (m_.fault("GlobalMemoryStatusEx")) return std::nullopt;
  const json& mem = m_.state["host"]["memory"];
  if (mem.value("fails", false)) return std::nullopt;
  return Memory{mem.value("totalPhys", std::uint64_t{0}), mem.value("availPhys", std::uint64_t{0})};
}

std::optional<std::wstring> SimSystem::windowsDirectory() {
  if (m_.fault("GetSystemWindowsDirectoryW")) return std::nullopt;
  const std::string dir = m_.state["host"].value("windowsDirectory", std::string());
  if (dir.empty()) return std::nullopt;
  return fromUtf8(dir);
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
  m_.count("api", "Sleep");
  m_.sleep(milliseconds);
}

std::int32_t SimBroadcast::broadcast(std::uint32_t flags, std::uint32_t message, std::uint64_t wParam, const Bytes& record) {
  if (auto e = m_.fault("BroadcastSystemMessageW")) return -1;
  m_.state["broadcasts"].push_back(
      {{"flags", hex32(flags)}, {"message", hex32(message)}, {"wParam", hex32(static_cast<std::uint32_t>(wParam))},
       {"record", toHex(record)}});
  return 1;
}

std::optional<std::vector<std::uint32_t>> SimSystem::diskDriveSignatures() {
  if (m_.fault("WmiQuery")) return std::nullopt;
  const json& wmi = m_.state["wmi"];
  if (wmi.is_object() && wmi.value("fails", false)) return std::nullopt;
  std::vector<std::uint32_t> sig;
  if (wmi.is_object())
    for (const auto& s : wmi.value("signatures", json::array())) sig.push_back(parseNumber(s));
  for (const auto& d : m_.state["controller"]["disks"])
    if (d.contains("signature")) sig.push_back(parseNumber(d["signature"]));
  return sig;
}

}  // namespace vmd::sim
