// Generated option sets for the settings options, and a machine on which
// they mean something: drives of every kind, image files of every format.
// Shared by the property tests of the settings and of the commands.
#pragma once

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "base/text_codec.h"
#include "sim/machine.h"

namespace vmd::test {

using sim::json;

// Plenty of memory and Invisible Memory, so that memory seldom stops a case;
// C: NTFS, D: FAT32, E: a small removable NTFS drive, N: a network drive.
inline json optionMachine() {
  return json::parse(R"({
    "host": {"memory": {"totalPhys": 4398046511104, "availPhys": 2199023255552}},
    "controller": {"im": {"state": 0, "localState": 1, "unitSize": 4096, "freeUnits": 1048576}},
    "drives": [
      {"letter": "C", "type": "fixed", "volume": "\\\\?\\Volume{c}\\"},
      {"letter": "D", "type": "fixed", "volume": "\\\\?\\Volume{d}\\"},
      {"letter": "E", "type": "removable", "volume": "\\\\?\\Volume{e}\\"},
      {"letter": "N", "type": "remote", "volume": "\\\\?\\Volume{n}\\"},
      {"letter": "R", "type": "fixed"}
    ],
    "volumes": [
      {"name": "\\\\?\\Volume{c}\\", "mountPoints": ["C:\\"], "fileSystem": "NTFS",
       "totalBytes": 4398046511104, "freeBytes": 2199023255552},
      {"name": "\\\\?\\Volume{d}\\", "mountPoints": ["D:\\"], "fileSystem": "FAT32",
       "totalBytes": 1099511627776, "freeBytes": 549755813888},
      {"name": "\\\\?\\Volume{e}\\", "mountPoints": ["E:\\"], "fileSystem": "NTFS",
       "totalBytes": 8589934592, "freeBytes": 1073741824},
      {"name": "\\\\?\\Volume{n}\\", "mountPoints": ["N:\\"], "fileSystem": "NTFS",
       "totalBytes": 8589934592, "freeBytes": 8589934592}
    ],
    "files": [
      {"path": "C:\\ro.img", "attributes": "0x21"},
      {"path": "C:\\packed", "attributes": "0x810"},
      {"path": "C:\\damaged.img", "size": 4096}
    ]
  })");
}

class Generator {
 public:
  explicit Generator(std::uint32_t seed) : rng_(seed) {}

  int below(int n) { return std::uniform_int_distribution<int>(0, n - 1)(rng_); }
  bool chance(int percent) { return below(100) < percent; }
  template <class T>
  const T& pick(const std::vector<T>& v) {
    return v[static_cast<std::size_t>(below(static_cast<int>(v.size())))];
  }

  std::wstring number(int lo, int hi) {
    return std::to_wstring(std::uniform_int_distribution<int>(lo, hi)(rng_));
  }

  std::wstring word(int maxLength, const std::wstring& alphabet) {
    std::wstring w;
    const int n = below(maxLength + 1);
    for (int i = 0; i < n; ++i) w += alphabet[static_cast<std::size_t>(below(static_cast<int>(alphabet.size())))];
    return w;
  }

  std::wstring size() {
    return pick<std::wstring>({L"0", L"-3", L"5", L"9", L"10", L"64", L"65", L"100", L"128", L"2048", L"2049",
                               L"4096", L"4097", L"32768", L"32769", L"1048576", L"1048577", L"abc", L"256MB",
                               number(1, 70000), number(1, 5000)});
  }

  std::wstring folders() {
    std::wstring list;
    const int n = below(14);
    for (int i = 0; i < n; ++i) {
      if (i) list += pick<std::wstring>({L"?", L"??"});
      list += pick<std::wstring>({L"data", L"Data", L"temp", L"$x", L" .dots. ", L"a:b", L"System Volume Information",
                                  L"..", word(50, L"abcXYZ09 ._-"), word(8, L"abc")});
    }
    return list;
  }

  std::wstring path() {
    const std::wstring name = word(12, L"abcdefgh0123");
    return pick<std::wstring>({L"C:\\" + name + L".bin", L"D:\\" + name + L".bin", L"E:\\" + name + L".bin",
                               L"N:\\" + name + L".bin", L"C:\\packed\\" + name, L"C:\\ro.img", L"C:\\",
                               L"C:\\a\\\\b", L"x:" + name, L"C:\\" + std::wstring(250, L'p')});
  }

  std::wstring imagePath() {
    return pick<std::wstring>({L"C:\\img\\plain.img", L"C:\\img\\smart.img", L"C:\\img\\compr.img",
                               L"C:\\img\\other-size.img", L"C:\\new.img", L"C:\\damaged.img", L"C:\\ro.img",
                               L"D:\\new.img", L"E:\\new.img", L"N:\\new.img", L"C:\\bad|name.img"});
  }

  // One option set: each option appears with some chance, in random order.
  std::vector<std::wstring> options() {
    std::vector<std::vector<std::wstring>> parts;
    auto add = [&](std::vector<std::wstring> p) { parts.push_back(std::move(p)); };
    if (chance(80)) add({pick<std::wstring>({L"-n", L"-size"}), size()});
    if (chance(30)) add({L"-t", pick<std::wstring>({L"scsi", L"dio", L"D", L"xyz"})});
    if (chance(30)) add({L"-d", pick<std::wstring>({L"R", L"c", L"q", L"5", L"", L"z"})});
    if (chance(20)) add({pick<std::wstring>({L"-v", L"-v=0", L"-volatile=1"})});
    if (chance(35)) add({pick<std::wstring>({L"-m", L"-m=compact", L"-m=normal", L"-m=0", L"-dmm=3"})});
    if (chance(35)) add({pick<std::wstring>({L"-i", L"-i=0", L"-i=" + number(1, 9000), L"-im=-5"})});
    if (chance(25)) {
      const std::wstring share = pick<std::wstring>({L"", L"?" + number(0, 9000), L"?0", L"?-4"});
      add({L"-p", path() + share});
    }
    if (chance(45)) add({L"-f", pick<std::wstring>({L"ntfs", L"NTFS", L"fat", L"fat32", L"exfat"})});
    if (chance(40))
      add({L"-c", pick<std::wstring>({L"0", L"1", L"2", L"4", L"8", L"16", L"32", L"64", L"512", L"1024", L"3000",
                                      L"511", L"4KB", L"131072"})});
    if (chance(40)) add({L"-l", word(40, L"ABCdef 12_")});
    if (chance(25)) add({pick<std::wstring>({L"-X", L"-X=0"})});
    if (chance(25)) add({pick<std::wstring>({L"-N", L"-nni=0"})});
    if (chance(25)) add({pick<std::wstring>({L"-T", L"-temp=0"})});
    if (chance(30)) add({L"-Q", pick<std::wstring>({L"f", L"m", L"w?x", L"x", L"m?w", L"0", L"full"})});
    if (chance(30)) add({L"-r", folders()});
    if (chance(30)) add({L"-z", pick<std::wstring>({L"1A2B-3C4D", L"0", L"deadbeef", L"zz", L"7"})});
    if (chance(55)) add({L"-I", imagePath()});
    if (chance(30)) add({pick<std::wstring>({L"-L", L"-L=0", L"-nosave"})});
    if (chance(25)) add({pick<std::wstring>({L"-D", L"-delay=0"})});
    if (chance(45))
      add({L"-F", pick<std::wstring>({L"plain", L"smart", L"compr", L"compr?" + number(-2, 14), L"Compr?3",
                                      L"compressed"})});
    if (chance(35)) add({L"-K", pick<std::wstring>({L"0", L"30", L"6000", L"7000", L"-2", number(1, 9000)})});
    if (chance(20)) add({L"-e", pick<std::wstring>({L"0,2,5", L"64", L"1,,63", L"x"})});
    if (chance(10)) add({L"-s"});
    if (chance(5)) add({L"stray"});
    std::shuffle(parts.begin(), parts.end(), rng_);
    std::vector<std::wstring> args;
    for (auto& p : parts) args.insert(args.end(), p.begin(), p.end());
    return args;
  }

 private:
  std::mt19937 rng_;
};

inline std::string describe(const std::vector<std::wstring>& args) {
  std::string s;
  for (const auto& a : args) s += " [" + toUtf8(a) + "]";
  return s;
}

// Image files whose header matches a disk of `sizeMb`, one of another size.
inline void addImages(json& state, std::uint32_t sizeMb) {
  const std::uint64_t bytes = std::uint64_t{sizeMb} << 20;
  json& files = state["files"];
  files.push_back({{"path", "C:\\img\\plain.img"}, {"image", {{"format", "plain"}, {"diskSize", bytes}}}});
  files.push_back({{"path", "C:\\img\\smart.img"}, {"image", {{"format", "smart"}, {"diskSize", bytes}}}});
  files.push_back(
      {{"path", "C:\\img\\compr.img"}, {"image", {{"format", "compr"}, {"diskSize", bytes}, {"level", 4}}}});
  files.push_back({{"path", "C:\\img\\other-size.img"},
                   {"image", {{"format", "smart"}, {"diskSize", bytes + (1 << 20)}}}});
}

}  // namespace vmd::test
