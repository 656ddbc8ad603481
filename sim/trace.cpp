#include "sim/trace.h"

#include <charconv>
#include <cstring>
#include <utility>

#include "sim/hex_text.h"

namespace vmd::sim {

namespace {

constexpr char kUpperDigits[] = "0123456789ABCDEF";
constexpr std::size_t kSpillBytes = 1 << 16;

template <typename Integer>  // 64 bits at most, signed or not
void appendDecimal(std::string& s, Integer v) {
  char text[24];
  s.append(text, std::to_chars(text, text + sizeof text, v).ptr);
}

// The bytes a quoted text writes as %XX.
struct Escaped {
  bool byte[256] = {};
  constexpr Escaped() {
    for (int b = 0; b < 0x20; ++b) byte[b] = true;
    byte[0x7F] = byte[0x25] = byte[0x22] = true;  // DEL, '%' and '"'
  }
};
constexpr Escaped kEscaped;

// Runs of plain characters are appended whole: a trace line is mostly paths.
void appendQuoted(std::string& out, std::string_view utf8) {
  out += '"';
  std::size_t from = 0;
  for (std::size_t i = 0; i < utf8.size(); ++i) {
    const auto b = static_cast<unsigned char>(utf8[i]);
    if (!kEscaped.byte[b]) continue;
    out.append(utf8.data() + from, i - from);
    const char escaped[3] = {'%', kUpperDigits[b >> 4], kUpperDigits[b & 15]};
    out.append(escaped, 3);
    from = i + 1;
  }
  out.append(utf8.data() + from, utf8.size() - from);
  out += '"';
}

}  // namespace

std::string TraceLine::quote(std::string_view utf8) {
  std::string s;
  appendQuoted(s, utf8);
  return s;
}

TraceLine::TraceLine(std::string_view call, std::string_view target) {
  body_.reserve(call.size() + target.size() + 160);
  body_ += call;
  body_ += ' ';
  appendQuoted(body_, target);
}

TraceLine TraceLine::withQuoted(std::string_view call, std::string_view quotedTarget, std::string buffer) {
  TraceLine line;
  line.body_ = std::move(buffer);
  line.body_.clear();
  line.body_.reserve(call.size() + quotedTarget.size() + 160);
  line.body_ += call;
  line.body_ += ' ';
  line.body_ += quotedTarget;
  return line;
}

TraceLine& TraceLine::field(std::string_view key, std::string_view value) {
  body_ += ' ';
  body_ += key;
  body_ += '=';
  body_ += value;
  return *this;
}

TraceLine& TraceLine::number(std::string_view key, std::uint64_t value) {
  field(key, {});
  appendDecimal(body_, value);
  return *this;
}

TraceLine& TraceLine::signedNumber(std::string_view key, std::int64_t value) {
  field(key, {});
  appendDecimal(body_, value);
  return *this;
}

TraceLine& TraceLine::hex(std::string_view key, std::uint32_t value) {
  field(key, {});
  appendHex32(body_, value);
  return *this;
}

TraceLine& TraceLine::bytes(std::string_view key, const void* data, std::size_t size) {
  body_ += ' ';
  body_ += key;
  body_ += '=';
  appendHexBytes(body_, static_cast<const std::uint8_t*>(data), size);
  return *this;
}

TraceLine& TraceLine::text(std::string_view key, std::string_view utf8) {
  body_ += ' ';
  body_ += key;
  body_ += '=';
  appendQuoted(body_, utf8);
  return *this;
}

TraceLine& TraceLine::ok() { return word("-> ok"); }

TraceLine& TraceLine::failed() { return word("-> failed"); }

TraceLine& TraceLine::error(std::uint32_t code) {
  word("-> error");
  body_ += ' ';
  appendHex32(body_, code);
  return *this;
}

TraceLine& TraceLine::word(std::string_view w) {
  if (w.rfind("->", 0) == 0) result_ = true;
  body_ += ' ';
  body_ += w;
  return *this;
}

TraceSink::TraceSink(std::FILE* out, std::function<std::uint64_t()> nowMs) : out_(out), nowMs_(std::move(nowMs)) {
  if (out_) text_.reserve(kSpillBytes + 4096);
}

void TraceSink::open(Call& call) {
  call.ms = nowMs_();
  open_.push_back(&call);
}

TraceLine TraceSink::line(std::string_view call, std::string_view target) {
  // The text of a line gone from the ring is written again: no allocation a line.
  std::string buffer;
  if (!spare_.empty()) {
    buffer = std::move(spare_.back());
    spare_.pop_back();
  }
  for (const Quoted& q : quoted_)
    if (!q.quoted.empty() && q.target == target) return TraceLine::withQuoted(call, q.quoted, std::move(buffer));
  Quoted& q = quoted_[nextQuoted_];
  nextQuoted_ = (nextQuoted_ + 1) % quoted_.size();
  q.target = target;
  q.quoted = TraceLine::quote(target);
  return TraceLine::withQuoted(call, q.quoted, std::move(buffer));
}

void TraceSink::closed(Call& call) {
  for (auto it = open_.end(); it != open_.begin();) {
    if (*--it == &call) {
      open_.erase(it);
      break;
    }
  }
  if (!open_.empty()) return;
  // The machine's own lines follow the call in which they happened.
  std::vector<Held> events = std::move(queued_);
  queued_.clear();
  for (Held& e : events) emit(std::move(e));
}

void TraceSink::cancel(Call& call) { closed(call); }

void TraceSink::injected(std::uint32_t error) {
  if (open_.empty()) return;
  open_.back()->injected = true;
  open_.back()->injectedError = error;
}

void TraceSink::finish(Call& call, TraceLine line) {
  if (call.injected) {
    // The rule answered for the system: its error is the result.
    if (!line.hasResult()) line.error(call.injectedError);
    line.word("injected");
  }
  emit(held(next_++, call.ms, std::move(line).take()));
  closed(call);
}

void TraceSink::event(const TraceLine& line) {
  const std::uint64_t ms = nowMs_();
  Held h = held(0, ms, line.body());
  if (!open_.empty()) queued_.push_back(std::move(h));
  else emit(std::move(h));
}

const TraceSink::Held& TraceSink::recent(std::size_t back) const {
  return recent_[(recentEnd_ + kRecent - 1 - back) % kRecent];
}

void TraceSink::remember(Held line) {
  if (recentCount_ == kRecent && spare_.size() < kRecent) spare_.push_back(std::move(recent_[recentEnd_].body));
  recent_[recentEnd_] = std::move(line);
  recentEnd_ = (recentEnd_ + 1) % kRecent;
  if (recentCount_ < kRecent) ++recentCount_;
}

TraceSink::Held TraceSink::held(std::uint64_t number, std::uint64_t ms, std::string body) {
  // Lines of one call share their start and differ mostly at their end,
  // where the results are: the length and last bytes tell most lines apart
  // at the cost of one comparison.
  std::uint64_t end = 0;
  const std::size_t n = body.size() < 8 ? body.size() : 8;
  std::memcpy(&end, body.data() + body.size() - n, n);
  const std::uint64_t tag = (body.size() * 0x9E3779B97F4A7C15ull) ^ end;
  return {number, ms, std::move(body), tag, {}};
}

bool TraceSink::Held::same(const Held& other) const { return tag == other.tag && body == other.body; }

void TraceSink::emit(Held line) {
  if (period_ != 0) {
    if (recent(period_ - 1 - held_.size() % period_).same(line)) {
      held_.push_back(std::move(line));
      return;
    }
    flushFold();
  }
  write(line);
  remember(std::move(line));
  // Two rounds alike: the rounds after them are held and folded.
  for (std::size_t p = 1; p <= kMaxPeriod && 2 * p <= recentCount_; ++p) {
    bool same = true;
    for (std::size_t i = 0; same && i < p; ++i) same = recent(i).same(recent(p + i));
    if (same) {
      period_ = p;
      break;
    }
  }
}

void TraceSink::flushFold() {
  const std::size_t period = period_;
  std::vector<Held> held = std::move(held_);
  held_.clear();
  period_ = 0;
  const std::size_t rounds = held.size() / period;
  std::size_t from = 0;
  if (rounds >= 2) {
    const std::size_t folded = rounds * period;
    std::uint64_t first = 0, last = 0;
    for (std::size_t i = 0; i < folded; ++i) {
      if (held[i].number == 0) continue;
      if (first == 0) first = held[i].number;
      last = held[i].number;
    }
    std::string prefix = "*";
    if (first != 0) {
      prefix = "#";
      prefix += std::to_string(first);
      prefix += "..#";
      prefix += std::to_string(last);
    }
    prefix += " t=";
    prefix += std::to_string(held.front().ms);
    prefix += "..";
    prefix += std::to_string(held[folded - 1].ms);
    TraceLine fold("Repeat", "");
    fold.number("lines", period).number("rounds", rounds);
    Held line{0, 0, fold.body(), 0, std::move(prefix)};
    write(line);
    recentCount_ = 0;
    from = folded;
  }
  for (std::size_t i = from; i < held.size(); ++i) {
    write(held[i]);
    remember(std::move(held[i]));
  }
}

void TraceSink::write(const Held& line) {
  if (!line.prefix.empty()) {
    text_ += line.prefix;
  } else if (line.number != 0) {
    text_ += '#';
    appendDecimal(text_, line.number);
    text_ += " t=";
    appendDecimal(text_, line.ms);
  } else {
    text_ += "* t=";
    appendDecimal(text_, line.ms);
  }
  text_ += ' ';
  text_ += line.body;
  text_ += '\n';
  if (out_ && text_.size() >= kSpillBytes) spill();
}

void TraceSink::spill() {
  if (!out_ || text_.empty()) return;
  if (std::fwrite(text_.data(), 1, text_.size(), out_) != text_.size()) ok_ = false;
  text_.clear();
}

bool TraceSink::close() {
  if (period_ != 0) flushFold();
  std::vector<Held> events = std::move(queued_);
  queued_.clear();
  for (Held& e : events) emit(std::move(e));
  if (period_ != 0) flushFold();
  if (out_) {
    spill();
    if (std::fflush(out_) != 0) ok_ = false;
  }
  return ok_;
}

}  // namespace vmd::sim
