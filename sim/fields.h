// One JSON object of the state file read strictly: every key read is
// marked, done() refuses the rest, and a refusal names its place.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "sim/machine.h"

namespace vmd::sim {

// One JSON object read strictly: every key read is marked, and done()
// refuses the rest.
class Fields {
 public:
  Fields(const json& object, std::string where);
  bool has(const char* key) const { return o_.contains(key); }
  const json& raw(const char* key);  // marks the key read
  // A key's place: "host.memory.totalPhys"; an empty key shows as "".
  std::string place(const std::string& key) const {
    const std::string k = key.empty() ? "\"\"" : key;
    return where_.empty() ? k : where_ + "." + k;
  }
  const std::string& where() const { return where_; }

  std::uint64_t u64(const char* key, std::uint64_t otherwise);
  std::uint32_t u32(const char* key, std::uint32_t otherwise);
  std::int64_t delay(const char* key, std::int64_t otherwise);  // milliseconds or "never"
  bool flag(const char* key, bool otherwise);
  std::string text(const char* key, const std::string& otherwise);
  char16_t letter(const char* key, char16_t otherwise);  // "X", "" or a code unit
  void done() const;

  [[noreturn]] static void fail(const std::string& place, const std::string& why);

 private:
  const json& o_;
  std::string where_;
  std::vector<std::string> read_;
};

std::uint64_t numberAt(const json& v, const std::string& place);
// A letter as text, 0 as "", any other code unit as its number: the forms
// Fields::letter reads.
json letterJson(std::uint64_t codeUnit);
std::string textAt(const json& v, const std::string& place);
ByteString hexAt(const json& v, const std::string& place);

// The text with control characters and bytes that are no UTF-8 written as
// \xNN, so that a message naming what the file holds stays one readable line.
std::string printable(const std::string& s);

}  // namespace vmd::sim
