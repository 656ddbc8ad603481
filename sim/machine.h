// The simulated machine's state: a JSON document (schema in
// docs/simulator.md) that persists between runs, with the fault rules, the
// virtual clock and the request counters that every simulated service shares.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include <nlohmann/json.hpp>

namespace vmd::sim {

using json = nlohmann::json;

inline constexpr int kSchemaVersion = 1;

class Machine {
 public:
  Machine() : state(defaultState()) {}
  explicit Machine(json s);

  // A Windows 10 x64 host with C: as its NTFS system drive, an administrator
  // token, the controller present at version 5.7 build 0 and 16 GiB of memory.
  static json defaultState();

  // Reads a state file; a missing file gives the default machine. Throws
  // std::runtime_error with a readable reason on a malformed file.
  static Machine load(const std::string& path);
  void save(const std::string& path) const;

  // Every simulated call asks here first: returns the error a matching fault
  // rule injects for this call, counting the calls that match each rule.
  // `api` is the call's name (e.g. "DeviceIoControl"); `code` the control
  // code (0 for none); `path` the path or name the call is about.
  std::optional<std::uint32_t> fault(const std::string& api, std::uint32_t code = 0, const std::string& path = "");

  // Request counters of this run (state["stats"]).
  void count(const std::string& group, const std::string& key);
  // The last value seen for a key of this run's stats (e.g. buffer sizes).
  void note(const std::string& group, const std::string& key, const std::string& value);

  // Virtual time: sleeping advances the clock and costs nothing.
  void sleep(std::uint32_t ms);
  std::uint64_t fileTime() const;  // 100 ns units since 1601, UTC

  json state;

 private:
  std::map<std::size_t, std::uint32_t> seen_;  // calls matched per fault rule, this run
};

std::string hex32(std::uint32_t v);  // "0x%08x"-style lower case, e.g. "0x00046024"
std::uint64_t parseNumber64(const json& v);  // a number, or a string in decimal or 0x hex
inline std::uint32_t parseNumber(const json& v) { return static_cast<std::uint32_t>(parseNumber64(v)); }

std::string lowerAscii(std::string s);
bool sameNoCase(const std::string& a, const std::string& b);

// Little-endian fields of the byte records the controller exchanges.
inline std::uint32_t le32(const std::uint8_t* p) {
  return static_cast<std::uint32_t>(p[0]) | (static_cast<std::uint32_t>(p[1]) << 8) |
         (static_cast<std::uint32_t>(p[2]) << 16) | (static_cast<std::uint32_t>(p[3]) << 24);
}
inline void putLe32(std::uint8_t* p, std::uint32_t v) {
  for (int i = 0; i < 4; ++i) p[i] = static_cast<std::uint8_t>(v >> (8 * i));
}
inline void putLe64(std::uint8_t* p, std::uint64_t v) {
  for (int i = 0; i < 8; ++i) p[i] = static_cast<std::uint8_t>(v >> (8 * i));
}

}  // namespace vmd::sim
