#include "sim/fields.h"

#include <algorithm>

#include "base/drive_letter.h"
#include "base/text_codec.h"
#include "sim/sim_services.h"

namespace vmd::sim {

// The text with control characters and bytes that are no UTF-8 written as
// \xNN, so that a message naming what the file holds stays one readable line.
std::string printable(const std::string& s) {
  std::string out;
  for (std::size_t i = 0; i < s.size();) {
    const auto b = static_cast<unsigned char>(s[i]);
    const std::size_t n = b < 0x80 ? 1 : (b >> 5) == 6 ? 2 : (b >> 4) == 14 ? 3 : (b >> 3) == 30 ? 4 : 0;
    bool ok = n > 0 && i + n <= s.size();
    for (std::size_t k = 1; ok && k < n; ++k) ok = (static_cast<unsigned char>(s[i + k]) & 0xC0) == 0x80;
    if (ok && n == 1) ok = b >= 0x20 && b != 0x7F;
    if (ok && n == 2) ok = !(b == 0xC2 && static_cast<unsigned char>(s[i + 1]) < 0xA0);  // C1 controls
    if (ok) {
      out.append(s, i, n);
      i += n;
      continue;
    }
    static const char* const kDigits = "0123456789abcdef";
    out += "\\x";
    out += kDigits[b >> 4];
    out += kDigits[b & 0xF];
    ++i;
  }
  return out;
}

Fields::Fields(const json& object, std::string where) : o_(object), where_(std::move(where)) {
  if (!o_.is_object()) fail(where_.empty() ? "state" : where_, "is not an object");
}

const json& Fields::raw(const char* key) {
  if (!has(key)) fail(place(key), "missing");
  read_.emplace_back(key);
  return o_.at(key);
}

void Fields::fail(const std::string& place, const std::string& why) {
  throw LoadError(printable(place) + ": " + printable(why));
}

std::uint64_t numberAt(const json& v, const std::string& place) {
  if (v.is_number_unsigned()) return v.get<std::uint64_t>();
  if (v.is_number_integer()) {
    if (v.get<std::int64_t>() < 0) Fields::fail(place, v.dump() + " is negative");
    return static_cast<std::uint64_t>(v.get<std::int64_t>());
  }
  if (v.is_string()) {
    try {
      return parseNumber64(v);
    } catch (...) {
    }
  }
  Fields::fail(place, v.dump() + " is not a number");
}

std::string textAt(const json& v, const std::string& place) {
  if (!v.is_string()) Fields::fail(place, v.dump() + " is not a text");
  return v.get<std::string>();
}

ByteString hexAt(const json& v, const std::string& place) {
  try {
    return fromHex(textAt(v, place));
  } catch (const LoadError&) {
    throw;
  } catch (...) {
    Fields::fail(place, "is not hexadecimal bytes");
  }
}

std::uint64_t Fields::u64(const char* key, std::uint64_t otherwise) {
  if (!has(key)) return otherwise;
  return numberAt(raw(key), place(key));
}

std::uint32_t Fields::u32(const char* key, std::uint32_t otherwise) {
  if (!has(key)) return otherwise;
  const std::uint64_t v = numberAt(raw(key), place(key));
  if (v > 0xFFFFFFFFull) fail(place(key), std::to_string(v) + " does not fit 32 bits");
  return static_cast<std::uint32_t>(v);
}

std::int64_t Fields::delay(const char* key, std::int64_t otherwise) {
  if (!has(key)) return otherwise;
  const json& v = raw(key);
  if (v.is_string() && v.get<std::string>() == "never") return kNever;
  return static_cast<std::int64_t>(numberAt(v, place(key)));
}

bool Fields::flag(const char* key, bool otherwise) {
  if (!has(key)) return otherwise;
  const json& v = raw(key);
  if (v.is_boolean()) return v.get<bool>();
  if (v.is_number()) return numberAt(v, place(key)) != 0;
  fail(place(key), v.dump() + " is not true or false");
}

std::string Fields::text(const char* key, const std::string& otherwise) {
  if (!has(key)) return otherwise;
  return textAt(raw(key), place(key));
}

char16_t Fields::letter(const char* key, char16_t otherwise) {
  if (!has(key)) return otherwise;
  const json& v = raw(key);
  if (v.is_string()) {
    const std::string s = v.get<std::string>();
    if (s.empty()) return 0;
    const char c = asciiUpper(s[0]);
    if (s.size() != 1 || c < 'A' || c > 'Z') fail(place(key), v.dump() + " is not a drive letter");
    return static_cast<char16_t>(c);
  }
  return static_cast<char16_t>(numberAt(v, place(key)));
}

json letterJson(std::uint64_t codeUnit) {
  if (codeUnit == 0) return "";
  if (isAsciiLetter(codeUnit)) return std::string(1, static_cast<char>(codeUnit));
  return codeUnit;
}

void Fields::done() const {
  for (auto it = o_.begin(); it != o_.end(); ++it)
    if (std::find(read_.begin(), read_.end(), it.key()) == read_.end())
      fail(place(it.key()), "unknown key");
}

}  // namespace vmd::sim
