#include "sim/record_layout.h"

#include <optional>
#include <stdexcept>

#include "base/text_codec.h"
#include "sim/record_view.h"
#include "sim/sim_services.h"
#include "sim/state_file.h"

namespace vmd::sim {

namespace {

// Header and section offsets of the record, as the driver defines them.
constexpr std::size_t kHeader = 64;
constexpr std::size_t kSubstanceFixed = 56, kFormatFixed = 44, kImageFixed = 40;
constexpr std::uint32_t kSaveSet = 0x5030;
const std::string kPrefix = "\\DosDevices\\";

std::uint64_t rd(const RecordBytes& b, std::size_t at, int width) { return ByteView(b).field(at, width); }

void wr(RecordBytes& b, std::size_t at, int width, std::uint64_t v) {
  for (int i = 0; i < width; ++i) b.at(at + static_cast<std::size_t>(i)) = static_cast<std::uint8_t>(v >> (8 * i));
}

RecordBytes utf16z(const std::string& utf8) {
  RecordBytes b;
  appendUtf16(b, fromUtf8(utf8));
  b.push_back(0);
  b.push_back(0);
  return b;
}

void copyInto(RecordBytes& b, std::size_t at, const RecordBytes& what) {
  for (std::size_t i = 0; i < what.size(); ++i) b.at(at + i) = what[i];
}

std::size_t up(std::size_t v, std::size_t to) { return (v + to - 1) / to * to; }

// Text of a UTF-16 string inside [from, end); nothing when it has no NUL there.
std::optional<std::string> stringIn(const RecordBytes& b, std::size_t from, std::size_t end) {
  for (std::size_t i = from; i + 1 < end && i + 1 < b.size(); i += 2)
    if (b[i] == 0 && b[i + 1] == 0) return toUtf8(readUtf16z(b.data(), b.size(), from, i + 2));
  return std::nullopt;
}

std::string hex64(std::uint64_t v) {
  static const char* d = "0123456789abcdef";
  std::string s = "0x";
  for (int i = 15; i >= 0; --i) s += d[(v >> (4 * i)) & 0xF];
  return s;
}

// How a settings key is written besides a plain number.
enum class KeyForm { Number, Letter, FileSystem };

struct NumberKey {
  const char* name;
  std::optional<std::uint64_t> SettingsDescription::*member;
  int bits;  // the record's field holds this many (sizes in MB: their bytes fit 64)
  KeyForm form = KeyForm::Number;
};

using SD = SettingsDescription;
const NumberKey kNumberKeys[] = {
    {"sizeMb", &SD::sizeMb, 44},
    {"sizeBytes", &SD::sizeBytes, 64},
    {"diskFlags", &SD::diskFlags, 32},
    {"driveLetter", &SD::driveLetter, 8, KeyForm::Letter},
    {"index", &SD::index, 8},
    {"marker", &SD::marker, 8},
    {"signature", &SD::signature, 32},
    {"substanceFlags", &SD::substanceFlags, 32},
    {"imQuotaMb", &SD::imQuotaMb, 44},
    {"physicalDriveSizeMb", &SD::physicalDriveSizeMb, 44},
    {"clusterSize", &SD::clusterSize, 17},  // stored in 512-byte sectors, one byte
    {"fileSystem", &SD::fileSystem, 8, KeyForm::FileSystem},
    {"fsFlags", &SD::fsFlags, 8},
    {"fsExtraMask", &SD::fsExtraMask, 8},
    {"everyonePermissions", &SD::everyonePermissions, 8},
    {"volumeSerial", &SD::volumeSerial, 32},
    {"imageFlags", &SD::imageFlags, 32},
    {"imageFormat", &SD::imageFormat, 8},
    {"compressionLevel", &SD::compressionLevel, 8},
    {"timingSaveMinutes", &SD::timingSaveMinutes, 16},
};

struct TextKey {
  const char* name;
  std::optional<std::string> SettingsDescription::*member;
};
const TextKey kTextKeys[] = {
    {"physicalDriveFile", &SD::physicalDriveFile},
    {"volumeLabel", &SD::volumeLabel},
    {"imageFile", &SD::imageFile},
};

constexpr std::size_t kMostFolders = 255;  // the folder count is one byte

// A drive letter as text: "" for none, else one ASCII character, kept as written.
std::uint64_t letterAt(const json& v, const std::string& place) {
  const std::string s = v.get<std::string>();
  if (s.empty()) return 0;
  if (s.size() != 1 || static_cast<unsigned char>(s[0]) >= 0x80) Fields::fail(place, v.dump() + " is not a drive letter");
  return static_cast<unsigned char>(s[0]);
}

// A file system by name, else its code.
std::uint64_t fileSystemAt(const json& v, const std::string& place) {
  const std::string s = lowerAscii(v.get<std::string>());
  if (s == "ntfs") return 2;
  if (s == "fat") return 18;
  if (s == "fat32") return 19;
  if (s.empty() || s[0] < '0' || s[0] > '9') Fields::fail(place, v.dump() + " is not a file system (NTFS, FAT, FAT32 or a code)");
  return numberAt(v, place);
}

// The readable settings a disk entry stands for: its inventory keys, with its
// "settings" laid over them.
SettingsDescription diskSettings(const json& disk, const std::string& where) {
  Fields f(disk, where);
  SettingsDescription s;
  if (f.has("index")) s.index = f.u64("index", 0) & 0xFF;
  if (f.has("signature")) s.signature = f.u32("signature", 0);
  if (f.has("size")) s.sizeBytes = f.u64("size", 0);
  if (f.flag("directIo", false)) s.diskFlags = 0x01000000;
  if (f.has("letter")) s.driveLetter = f.letter("letter", 0) & 0xFF;
  if (f.has("settings")) s.layOver(readSettings(f.raw("settings"), f.place("settings")));
  return s;
}

}  // namespace

std::uint32_t recordChecksum(const RecordBytes& r) {
  std::uint32_t sum = 0;
  for (std::size_t i = 12; i < r.size(); ++i) sum += r[i];
  return sum;
}

void SettingsDescription::layOver(const SettingsDescription& top) {
  if (top.sizeMb || top.sizeBytes) {
    sizeMb.reset();
    sizeBytes.reset();
  }
  for (const NumberKey& k : kNumberKeys)
    if (top.*k.member) this->*k.member = top.*k.member;
  for (const TextKey& k : kTextKeys)
    if (top.*k.member) this->*k.member = top.*k.member;
  if (top.numaNodeMasks) numaNodeMasks = top.numaNodeMasks;
  if (top.customFolders) customFolders = top.customFolders;
}

SettingsDescription readSettings(const json& j, const std::string& where) {
  Fields f(j, where);
  SettingsDescription s;
  for (const NumberKey& k : kNumberKeys) {
    if (!f.has(k.name)) continue;
    const json& v = f.raw(k.name);
    const std::string at = f.place(k.name);
    std::uint64_t n;
    if (v.is_string() && k.form == KeyForm::Letter) n = letterAt(v, at);
    else if (v.is_string() && k.form == KeyForm::FileSystem) n = fileSystemAt(v, at);
    else n = numberAt(v, at);
    if (k.bits < 64 && (n >> k.bits) != 0)
      Fields::fail(at, std::to_string(n) + " is too large (at most " + std::to_string((1ull << k.bits) - 1) + ")");
    s.*k.member = n;
  }
  for (const TextKey& k : kTextKeys)
    if (f.has(k.name)) s.*k.member = f.text(k.name, "");
  if (f.has("numaNodeMasks")) {
    const json& list = f.raw("numaNodeMasks");
    if (!list.is_array()) Fields::fail(f.place("numaNodeMasks"), "is not a list");
    s.numaNodeMasks.emplace();
    for (std::size_t i = 0; i < list.size(); ++i)
      s.numaNodeMasks->push_back(numberAt(list[i], f.place("numaNodeMasks") + "[" + std::to_string(i) + "]"));
  }
  if (f.has("customFolders")) {
    const json& list = f.raw("customFolders");
    if (!list.is_array()) Fields::fail(f.place("customFolders"), "is not a list");
    if (list.size() > kMostFolders)
      Fields::fail(f.place("customFolders"),
                   std::to_string(list.size()) + " folders: a record holds at most " + std::to_string(kMostFolders));
    s.customFolders.emplace();
    for (std::size_t i = 0; i < list.size(); ++i)
      s.customFolders->push_back(textAt(list[i], f.place("customFolders") + "[" + std::to_string(i) + "]"));
  }
  f.done();
  return s;
}

RecordBytes buildRecord(const json& settings) { return buildRecord(readSettings(settings, "settings")); }

RecordBytes buildRecord(const SettingsDescription& s) {
  const std::uint64_t sizeBytes = s.sizeBytes ? *s.sizeBytes : s.sizeMb.value_or(128) << 20;
  const std::uint64_t driveShare = s.physicalDriveSizeMb.value_or(0);
  const std::string driveFile = s.physicalDriveFile.value_or("");
  const std::vector<std::uint64_t> masks = s.numaNodeMasks.value_or(std::vector<std::uint64_t>{});
  const std::string label = s.volumeLabel.value_or("RAMDISK");
  const std::vector<std::string> folders = s.customFolders.value_or(std::vector<std::string>{});
  const std::uint64_t permissions = s.everyonePermissions.value_or(0);
  const std::uint64_t serial = s.volumeSerial.value_or(0);
  const std::uint32_t extraDefault =
      (permissions ? 0x01u : 0u) | (serial ? 0x02u : 0u) | (folders.empty() ? 0u : 0x04u);
  const std::string imageFile = s.imageFile.value_or("");
  // An image given without flags is an accepted PLAIN image saved at shutdown, in Quick Save mode.
  const std::uint64_t imageFlags = s.imageFlags.value_or(imageFile.empty() ? 0 : 0x10011);

  // Substance section: fixed part, the backing path, the 8-aligned node masks.
  RecordBytes drivePath;
  std::size_t subLen = kSubstanceFixed;
  if (driveShare != 0) {
    drivePath = utf16z(kPrefix + driveFile);
    subLen += drivePath.size() - 2;
  }
  std::size_t maskAt = 0;
  if (!masks.empty()) {
    maskAt = up(subLen, 8);
    subLen = maskAt + 8 * masks.size();
  }
  // Format section: fixed part, the label, the folder list.
  RecordBytes labelText = label.empty() ? RecordBytes() : utf16z(label);
  RecordBytes folderList;
  for (const auto& f : folders) {
    RecordBytes one = utf16z(f);
    folderList.insert(folderList.end(), one.begin(), one.end());
  }
  if (!folders.empty()) folderList.insert(folderList.end(), {0, 0});
  const std::size_t folderAt = kFormatFixed + labelText.size();
  const std::size_t fmtLen = folderAt + folderList.size();
  // Image section: fixed part and the image path.
  RecordBytes imagePath = imageFile.empty() ? RecordBytes() : utf16z(kPrefix + imageFile);
  const std::size_t imgLen = imageFile.empty() ? 0 : kImageFixed + imagePath.size() - 2;

  const std::size_t subAt = kHeader;
  const std::size_t fmtAt = up(subAt + subLen, 16);
  const std::size_t imgAt = imgLen ? up(fmtAt + fmtLen, 16) : 0;
  const std::size_t total = imgLen ? imgAt + imgLen : fmtAt + fmtLen;
  if (total > 0xFFFF) throw RecordTooLarge();

  RecordBytes r(total, 0);
  wr(r, 0, 4, kHeader);
  wr(r, 4, 4, total);
  wr(r, 12, 4, s.diskFlags.value_or(0));
  wr(r, 16, 8, sizeBytes);
  wr(r, 24, 1, s.index.value_or(0));
  wr(r, 25, 1, s.marker.value_or(0x80));
  wr(r, 26, 1, s.driveLetter.value_or(0));
  wr(r, 28, 4, s.signature.value_or(0));
  wr(r, 40, 2, subAt);
  wr(r, 42, 2, subLen);
  wr(r, 44, 2, fmtAt);
  wr(r, 46, 2, fmtLen);
  wr(r, 48, 2, imgAt);
  wr(r, 50, 2, imgLen);

  wr(r, subAt, 4, kSubstanceFixed);
  wr(r, subAt + 4, 4, subLen);
  wr(r, subAt + 8, 4, s.substanceFlags.value_or(0));
  wr(r, subAt + 16, 8, sizeBytes);
  wr(r, subAt + 24, 8, s.imQuotaMb.value_or(0) << 20);
  if (driveShare != 0) {
    wr(r, subAt + 32, 8, driveShare << 20);
    wr(r, subAt + 48, 2, drivePath.size());
    copyInto(r, subAt + 50, drivePath);
  }
  if (!masks.empty()) {
    wr(r, subAt + 12, 2, maskAt);
    wr(r, subAt + 14, 2, masks.size());
    for (std::size_t i = 0; i < masks.size(); ++i) wr(r, subAt + maskAt + 8 * i, 8, masks[i]);
  }

  wr(r, fmtAt, 4, kFormatFixed);
  wr(r, fmtAt + 4, 4, fmtLen);
  wr(r, fmtAt + 8, 1, s.fsFlags.value_or(0));
  wr(r, fmtAt + 9, 1, s.fsExtraMask.value_or(extraDefault));
  wr(r, fmtAt + 10, 1, s.fileSystem.value_or(19));
  wr(r, fmtAt + 11, 1, s.clusterSize.value_or(0) >> 9);
  wr(r, fmtAt + 12, 4, serial);
  wr(r, fmtAt + 16, 1, permissions);
  if (!labelText.empty()) {
    wr(r, fmtAt + 40, 2, labelText.size());
    copyInto(r, fmtAt + 42, labelText);
  }
  if (!folderList.empty()) {
    wr(r, fmtAt + 19, 1, folders.size());
    wr(r, fmtAt + 20, 2, folderList.size());
    wr(r, fmtAt + 22, 2, folderAt);
    copyInto(r, fmtAt + folderAt, folderList);
  }

  if (imgLen) {
    wr(r, imgAt, 4, kImageFixed);
    wr(r, imgAt + 4, 4, imgLen);
    wr(r, imgAt + 8, 4, imageFlags);
    // A Load Only image carries no save format unless one is given outright.
    const bool saved = (imageFlags & kSaveSet) != 0;
    wr(r, imgAt + 12, 1, s.imageFormat.value_or(0));
    wr(r, imgAt + 13, 1, s.compressionLevel.value_or(saved ? 1 : 0));
    wr(r, imgAt + 14, 2, s.timingSaveMinutes.value_or(0));
    wr(r, imgAt + 36, 2, imagePath.size());
    copyInto(r, imgAt + 38, imagePath);
  }

  wr(r, 8, 4, recordChecksum(r));
  return r;
}

RecordBytes diskRecord(const json& disk, const std::string& where) {
  if (disk.is_object() && disk.contains("settingsRecord")) return hexAt(disk["settingsRecord"], where + ".settingsRecord");
  return buildRecord(diskSettings(disk, where));
}

std::optional<RecordBytes> diskStatus(const json& disk, const std::string& where) {
  if (!disk.is_object()) Fields::fail(where, "is not an object");
  if (disk.contains("statusRecord")) return hexAt(disk["statusRecord"], where + ".statusRecord");
  if (!disk.contains("status")) return std::nullopt;
  const SettingsDescription top = readSettings(disk["status"], where + ".status");
  // Over a raw record, its fields as it holds them.
  SettingsDescription s = disk.contains("settingsRecord")
                              ? readSettings(decodeRecord(hexAt(disk["settingsRecord"], where + ".settingsRecord")),
                                             where + ".settingsRecord")
                              : diskSettings(disk, where);
  s.layOver(top);
  return buildRecord(s);
}

json decodeRecord(const RecordBytes& r) {
  json s = json::object();
  const std::uint64_t size = rd(r, 16, 8);
  s["sizeMb"] = size >> 20;
  if (size & 0xFFFFF) s["sizeBytes"] = size;
  s["diskFlags"] = hex32(static_cast<std::uint32_t>(rd(r, 12, 4)));
  s["driveLetter"] = letterJson(rd(r, 26, 1));
  s["index"] = rd(r, 24, 1);
  s["marker"] = rd(r, 25, 1);
  s["signature"] = hex32(static_cast<std::uint32_t>(rd(r, 28, 4)));

  if (const std::size_t subLen = rd(r, 42, 2)) {
    const std::size_t at = rd(r, 40, 2), end = at + subLen;
    s["substanceFlags"] = hex32(static_cast<std::uint32_t>(rd(r, at + 8, 4)));
    s["imQuotaMb"] = rd(r, at + 24, 8) >> 20;
    s["physicalDriveSizeMb"] = rd(r, at + 32, 8) >> 20;
    if (rd(r, at + 48, 2)) {
      std::string path = stringIn(r, at + 50, end).value_or("");
      if (path.rfind(kPrefix, 0) == 0) path.erase(0, kPrefix.size());
      s["physicalDriveFile"] = path;
    }
    json masks = json::array();
    const std::size_t maskAt = at + rd(r, at + 12, 2);
    for (std::size_t i = 0; i < rd(r, at + 14, 2); ++i) masks.push_back(hex64(rd(r, maskAt + 8 * i, 8)));
    if (!masks.empty()) s["numaNodeMasks"] = masks;
  }

  if (const std::size_t fmtLen = rd(r, 46, 2)) {
    const std::size_t at = rd(r, 44, 2), end = at + fmtLen;
    s["fsFlags"] = rd(r, at + 8, 1);
    s["fsExtraMask"] = rd(r, at + 9, 1);
    s["fileSystem"] = rd(r, at + 10, 1);
    s["clusterSize"] = rd(r, at + 11, 1) << 9;
    s["volumeSerial"] = hex32(static_cast<std::uint32_t>(rd(r, at + 12, 4)));
    s["everyonePermissions"] = rd(r, at + 16, 1);
    s["volumeLabel"] = rd(r, at + 40, 2) ? stringIn(r, at + 42, end).value_or("") : std::string();
    json folders = json::array();
    if (rd(r, at + 20, 2)) {
      std::size_t p = at + rd(r, at + 22, 2);
      for (std::size_t i = 0; i < rd(r, at + 19, 1); ++i) {
        const std::string name = stringIn(r, p, end).value_or("");
        folders.push_back(name);
        p += 2 * utf16Length(fromUtf8(name)) + 2;
      }
    }
    s["customFolders"] = folders;
  }

  if (const std::size_t imgLen = rd(r, 50, 2)) {
    const std::size_t at = rd(r, 48, 2), end = at + imgLen;
    s["imageFlags"] = hex32(static_cast<std::uint32_t>(rd(r, at + 8, 4)));
    s["imageFormat"] = rd(r, at + 12, 1);
    s["compressionLevel"] = rd(r, at + 13, 1);
    s["timingSaveMinutes"] = rd(r, at + 14, 2);
    std::string path = stringIn(r, at + 38, end).value_or("");
    if (path.rfind(kPrefix, 0) == 0) path.erase(0, kPrefix.size());
    s["imageFile"] = path;
  }
  return s;
}

std::string checkRecord(const RecordBytes& r) {
  if (r.size() < kHeader) return "record shorter than its header";
  if (rd(r, 0, 4) != kHeader) return "header size is not 64";
  if (rd(r, 4, 4) != r.size()) return "total length differs from the bytes given";
  if (rd(r, 8, 4) != recordChecksum(r)) return "checksum mismatch";

  struct Placed {
    const char* name;
    std::size_t at, len;
  };
  std::vector<Placed> placed;
  auto section = [&](const char* name, std::size_t field, std::size_t fixed, bool required) -> std::string {
    const std::size_t at = rd(r, field, 2), len = rd(r, field + 2, 2);
    if (len == 0) return required ? std::string(name) + " section missing" : std::string();
    if (at < kHeader) return std::string(name) + " section overlaps the header";
    if (at + len > r.size()) return std::string(name) + " section runs past the record";
    if (len < fixed) return std::string(name) + " section shorter than its fixed part";
    if (rd(r, at, 4) != fixed) return std::string(name) + " section fixed-part size is wrong";
    if (rd(r, at + 4, 4) != len) return std::string(name) + " section length differs from the header's";
    for (const Placed& p : placed)
      if (at < p.at + p.len && p.at < at + len) return std::string(name) + " section overlaps the " + p.name + " section";
    placed.push_back({name, at, len});
    return {};
  };
  // A string field: `bytes` long, even, ending in its NUL, inside the section.
  auto text = [&](const char* what, std::size_t from, std::size_t bytes, std::size_t end) -> std::string {
    if (bytes % 2 != 0 || bytes < 2) return std::string(what) + " length is not a whole string";
    if (from + bytes > end) return std::string(what) + " runs past its section";
    if (rd(r, from + bytes - 2, 2) != 0) return std::string(what) + " is not NUL-terminated";
    return {};
  };

  if (auto e = section("substance", 40, kSubstanceFixed, true); !e.empty()) return e;
  {
    const std::size_t at = rd(r, 40, 2), end = at + rd(r, 42, 2);
    std::size_t used = at + 50;
    if (const std::size_t bytes = rd(r, at + 48, 2)) {
      if (auto e = text("backing-file path", at + 50, bytes, end); !e.empty()) return e;
      used += bytes;
    }
    if (const std::size_t count = rd(r, at + 14, 2)) {
      const std::size_t maskAt = rd(r, at + 12, 2);
      if (maskAt % 8 != 0) return "node masks are not 8-aligned";
      if (at + maskAt < used) return "node masks overlap the backing-file path";
      if (at + maskAt + 8 * count > end) return "node masks run past their section";
    }
  }

  if (auto e = section("format", 44, kFormatFixed, true); !e.empty()) return e;
  {
    const std::size_t at = rd(r, 44, 2), end = at + rd(r, 46, 2);
    std::size_t used = at + 42;
    if (const std::size_t bytes = rd(r, at + 40, 2)) {
      if (auto e = text("volume label", at + 42, bytes, end); !e.empty()) return e;
      used += bytes;
    }
    if (const std::size_t bytes = rd(r, at + 20, 2)) {
      const std::size_t from = at + rd(r, at + 22, 2);
      if (from < used || from < at + kFormatFixed) return "custom-folder list overlaps the fixed part or the label";
      if (bytes % 2 != 0 || from + bytes > end) return "custom-folder list runs past its section";
      // Names one after the other, then one more NUL closing the list.
      std::size_t names = 0, p = from;
      while (p + 2 <= from + bytes && rd(r, p, 2) != 0) {
        while (p + 2 <= from + bytes && rd(r, p, 2) != 0) p += 2;
        if (p + 2 > from + bytes) return "custom-folder list is not NUL-terminated";
        p += 2;
        ++names;
      }
      if (p + 2 != from + bytes) return "custom-folder list is not closed by one NUL at its end";
      if (names != rd(r, at + 19, 1)) return "custom-folder count differs from the list";
    }
  }

  if (auto e = section("image", 48, kImageFixed, false); !e.empty()) return e;
  if (const std::size_t len = rd(r, 50, 2)) {
    const std::size_t at = rd(r, 48, 2);
    if (auto e = text("image path", at + 38, rd(r, at + 36, 2), at + len); !e.empty()) return e;
  }
  return {};
}

}  // namespace vmd::sim
