// The request trace (--sim-trace): one line for every call the program makes
// of the system, in the order made, and marked lines for what the machine
// does by itself meanwhile. The line format is documented in
// docs/simulator.md ("The request trace"); it only ever grows.
#pragma once

#include <cstdint>
#include <array>
#include <cstdio>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace vmd::sim {

// The text of one line after its number and time: the call's name, its
// target in quotes, its arguments as key=value, then " -> " and the result.
class TraceLine {
 public:
  TraceLine() = default;
  TraceLine(std::string_view call, std::string_view target);
  // The same with the target already quoted, written into `buffer`.
  static TraceLine withQuoted(std::string_view call, std::string_view quotedTarget, std::string buffer = {});

  // key=value, the value written as given (it holds no blank).
  TraceLine& field(std::string_view key, std::string_view value);
  TraceLine& number(std::string_view key, std::uint64_t value);
  TraceLine& signedNumber(std::string_view key, std::int64_t value);
  TraceLine& hex(std::string_view key, std::uint32_t value);  // 0x%08x
  TraceLine& bytes(std::string_view key, const void* data, std::size_t size);
  // key="text", UTF-8, with '%', '"' and control characters as %XX.
  TraceLine& text(std::string_view key, std::string_view utf8);

  // The result; fields added after it belong to the result.
  TraceLine& ok();
  TraceLine& failed();  // a call that says only that it failed
  TraceLine& error(std::uint32_t code);
  TraceLine& word(std::string_view w);  // a bare word, e.g. "injected"

  bool hasResult() const { return result_; }
  const std::string& body() const { return body_; }
  std::string take() && { return std::move(body_); }

  // A target or text value as the trace writes it, with its quotes.
  static std::string quote(std::string_view utf8);

 private:
  std::string body_;
  bool result_ = false;
};

// Writes the trace. A call is opened before its fault rule is asked and
// finished when it returns: the number and time are the call's start, and
// lines of the machine's own (events) that happen meanwhile follow its line.
// A group of lines that repeats unchanged (a poll) is written twice and then
// folded into one "Repeat" line.
class TraceSink {
 public:
  // Writes to `out` (not owned; null keeps the whole text in memory, for
  // tests), with the virtual time that `nowMs` tells.
  TraceSink(std::FILE* out, std::function<std::uint64_t()> nowMs);
  TraceSink(const TraceSink&) = delete;
  TraceSink& operator=(const TraceSink&) = delete;

  // One call in progress, kept by whoever makes it.
  struct Call {
    std::uint64_t ms = 0;
    bool injected = false;
    std::uint32_t injectedError = 0;
  };
  // The call starts now; it is the innermost until it is finished.
  void open(Call& call);
  // A call's line begun: its name and quoted target. The last targets are
  // kept quoted, as one path comes back for its open, request and close.
  TraceLine line(std::string_view call, std::string_view target);
  // Writes its line with the next number (lines are numbered in the order
  // written). A call failed by a rule and given no result of its own gets
  // the rule's error; either way it is marked "injected".
  void finish(Call& call, TraceLine line);
  // A call that turned out not to be made: no line.
  void cancel(Call& call);
  // A fault rule fails the innermost call.
  void injected(std::uint32_t error);
  // A line of the machine's own, marked "*".
  void event(const TraceLine& line);

  // Writes out what is held and flushes; false when a write failed.
  bool close();
  // Everything written so far (without `out`: the whole trace).
  const std::string& text() const { return text_; }

 private:
  struct Held {
    std::uint64_t number;  // "#12 t=1500"; 0 for an event, "* t=1500"
    std::uint64_t ms;
    std::string body;
    std::uint64_t tag;   // tells most unlike bodies apart without reading them
    std::string prefix;  // given whole: a folded repeat's
    bool same(const Held& other) const;
  };
  static Held held(std::uint64_t number, std::uint64_t ms, std::string body);
  void emit(Held line);
  void write(const Held& line);
  void flushFold();
  void spill();
  void closed(Call& call);

  std::FILE* out_;
  std::function<std::uint64_t()> nowMs_;
  std::uint64_t next_ = 1;
  std::vector<Call*> open_;
  std::vector<Held> queued_;  // events while a call is open

  // Folding: the last lines written (a ring), and the rounds of a repeat
  // being held.
  static constexpr std::size_t kMaxPeriod = 8;
  static constexpr std::size_t kRecent = 2 * kMaxPeriod;
  const Held& recent(std::size_t back) const;  // 0: the last line written
  void remember(Held line);
  std::array<Held, kRecent> recent_;
  std::size_t recentCount_ = 0;
  std::size_t recentEnd_ = 0;
  std::vector<std::string> spare_;  // texts of lines gone from the ring, for new lines
  std::size_t period_ = 0;        // 0: not folding
  std::vector<Held> held_;        // lines of the repeat not yet written
  std::string text_;
  bool ok_ = true;

  struct Quoted {
    std::string target, quoted;
  };
  std::array<Quoted, 4> quoted_;
  std::size_t nextQuoted_ = 0;
};

}  // namespace vmd::sim
