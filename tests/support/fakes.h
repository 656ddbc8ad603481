// Test doubles of the console boundary: streams that keep what was written,
// a catalogue served from maps, and a keyboard that plays back given keys.
#pragma once

#include <cstdint>
#include <deque>
#include <initializer_list>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/platform.h"

namespace vmd::test {

// Keeps standard output and standard error apart, and the interleaved
// transcript of both in `all`.
class CapturingStreams : public OutputStreams {
 public:
  void write(Stream stream, const std::wstring& text) override {
    (stream == Stream::Out ? out : err) += text;
    all += text;
    writes.emplace_back(stream, text);
  }
  // A console exists only when the test says so.
  bool writeConsole(Stream stream, const std::wstring& text) override {
    if (!console) return false;
    consoleWrites.emplace_back(stream, text);
    return true;
  }
  void clear() {
    out.clear();
    err.clear();
    all.clear();
    writes.clear();
  }

  std::wstring out;
  std::wstring err;
  std::wstring all;
  std::vector<std::pair<Stream, std::wstring>> writes;
  bool console = false;
  std::vector<std::pair<Stream, std::wstring>> consoleWrites;
};

// Messages and strings by id. formatMessage replaces %1..%9 with the inserts
// (a missing insert leaves the marker as typed); a missing id gives nothing.
class MapCatalog : public MessageCatalog {
 public:
  MapCatalog() = default;
  MapCatalog(std::map<std::uint32_t, std::wstring> messageTexts, std::map<std::uint32_t, std::wstring> stringTexts)
      : messages(std::move(messageTexts)), strings(std::move(stringTexts)) {}

  std::optional<std::wstring> formatMessage(std::uint32_t id, const std::vector<const wchar_t*>& inserts) override {
    auto it = messages.find(id);
    if (it == messages.end()) return std::nullopt;
    const std::wstring& text = it->second;
    std::wstring result;
    for (std::size_t i = 0; i < text.size(); ++i) {
      if (text[i] == L'%' && i + 1 < text.size() && text[i + 1] >= L'1' && text[i + 1] <= L'9') {
        const std::size_t n = static_cast<std::size_t>(text[i + 1] - L'1');
        if (n < inserts.size() && inserts[n]) {
          result += inserts[n];
          ++i;
          continue;
        }
      }
      result += text[i];
    }
    return result;
  }

  std::wstring loadString(std::uint32_t id) override {
    auto it = strings.find(id);
    return it == strings.end() ? std::wstring() : it->second;
  }

  std::map<std::uint32_t, std::wstring> messages;
  std::map<std::uint32_t, std::wstring> strings;
};

// Plays back queued keys, then -1 (no more input) for ever.
class ScriptedKeys : public KeyReader {
 public:
  ScriptedKeys() = default;
  ScriptedKeys(std::initializer_list<int> keys) : queue(keys) {}

  int readKey() override {
    ++reads;
    if (queue.empty()) return -1;
    const int key = queue.front();
    queue.pop_front();
    return key;
  }
  void push(int key) { queue.push_back(key); }

  std::deque<int> queue;
  int reads = 0;
};

}  // namespace vmd::test
