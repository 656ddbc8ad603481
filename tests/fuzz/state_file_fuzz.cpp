// Any bytes as the simulated machine's state file. Loading gives a machine or
// refuses the file with one line that names the file and a place in it, and
// leaves the file as it was; a machine that loads is saved, loads again from
// what was saved, and saves the same text again.
//
// An input that begins with a 0 byte is any JSON document instead: the rest
// is read as MessagePack and written out as JSON text, so that mutations keep
// the document well formed and reach the keys and values behind the syntax.
// The .msgpack seeds are seed state files in that form (nlohmann's
// to_msgpack, after a 0 byte).
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

#include <unistd.h>

#include "sim/machine.h"

namespace {

[[noreturn]] void finding(const std::string& what) {
  std::fprintf(stderr, "state file finding: %s\n", what.c_str());
  std::abort();
}

const char* const kFiles[] = {"machine.json", "saved.json", "again.json"};

// A scratch folder for this process's files, taken away when it exits (kept
// for the whole run, so it outlives the exit handler).
const std::string& folder() {
  static const std::string& dir = *[] {
    const char* tmp = std::getenv("TMPDIR");
    auto* path = new std::string(std::string(tmp && *tmp ? tmp : "/tmp") + "/vmd-state-fuzz-XXXXXX");
    if (!mkdtemp(path->data())) finding("no scratch folder");
    return path;
  }();
  static const bool cleaned = std::atexit([] {
    for (const char* f : kFiles) std::remove((folder() + "/" + f).c_str());
    rmdir(folder().c_str());
  }) == 0;
  (void)cleaned;
  return dir;
}

std::string readAll(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream s;
  s << in.rdbuf();
  return s.str();
}

void writeAll(const std::string& path, const std::string& text) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out << text;
  if (!out) finding("cannot write " + path);
}

// Whole UTF-8 characters, none of them a control character.
bool printableLine(const std::string& s) {
  for (std::size_t i = 0; i < s.size();) {
    const auto b = static_cast<unsigned char>(s[i]);
    std::size_t n = 0;
    std::uint32_t c = 0;
    if (b < 0x80) n = 1, c = b;
    else if ((b & 0xE0) == 0xC0) n = 2, c = b & 0x1F;
    else if ((b & 0xF0) == 0xE0) n = 3, c = b & 0x0F;
    else if ((b & 0xF8) == 0xF0) n = 4, c = b & 0x07;
    if (n == 0 || i + n > s.size()) return false;
    for (std::size_t k = 1; k < n; ++k) {
      const auto t = static_cast<unsigned char>(s[i + k]);
      if ((t & 0xC0) != 0x80) return false;
      c = (c << 6) | (t & 0x3F);
    }
    if (c < 0x20 || (c >= 0x7F && c < 0xA0)) return false;
    i += n;
  }
  return true;
}

// "<file>: <place>: <why>": one line of printable text, no part empty.
void checkRefusal(const std::string& message, const std::string& path) {
  if (!printableLine(message)) finding("refusal is not one printable line: " + message);
  if (message.rfind(path + ": ", 0) != 0) finding("refusal does not name the file: " + message);
  const std::string rest = message.substr(path.size() + 2);
  const std::size_t colon = rest.find(": ");
  if (colon == std::string::npos || colon == 0 || colon + 2 == rest.size())
    finding("refusal does not name a place and a reason: " + message);
  // A raw record is taken as it stands: nothing inside it is refused.
  const std::string place = rest.substr(0, colon);
  if (place.find("Record.") != std::string::npos) finding("refused inside a raw record: " + message);
}

vmd::sim::Machine load(const std::string& path, const char* what) {
  try {
    return vmd::sim::Machine::load(path);
  } catch (const vmd::sim::LoadError& e) {
    finding(std::string(what) + " does not load: " + e.what());
  } catch (const std::exception& e) {
    finding(std::string(what) + ": " + e.what());
  }
}

std::string saved(vmd::sim::Machine& m, const std::string& path) {
  try {
    m.save(path);
  } catch (const std::exception& e) {
    finding(std::string("saving: ") + e.what());
  }
  return readAll(path);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string input = folder() + "/" + kFiles[0], first = folder() + "/" + kFiles[1],
                    second = folder() + "/" + kFiles[2];
  std::string text(reinterpret_cast<const char*>(data), size);
  if (size > 0 && data[0] == 0) {
    const vmd::sim::json doc = vmd::sim::json::from_msgpack(data + 1, data + size, true, false);
    if (doc.is_discarded()) return 0;
    text = doc.dump(1, ' ', false, vmd::sim::json::error_handler_t::replace);
  }
  writeAll(input, text);

  vmd::sim::Machine m;
  try {
    m = vmd::sim::Machine::load(input);
  } catch (const vmd::sim::LoadError& e) {
    checkRefusal(e.what(), input);
    if (readAll(input) != text) finding("a refused file was changed");
    return 0;
  } catch (const std::exception& e) {
    finding(std::string("loading: not a refusal: ") + e.what());
  }

  const std::string once = saved(m, first);
  vmd::sim::Machine again = load(first, "a saved machine");
  const std::string twice = saved(again, second);
  if (once != twice) finding("a saved machine saves differently the second time:\n" + once + "\n---\n" + twice);
  return 0;
}
