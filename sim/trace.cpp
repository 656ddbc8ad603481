#include "sim/trace.h"

#include <charconv>
#include <utility>

namespace vmd::sim {

namespace {

constexpr char kDigits[] = "0123456789abcdef";
constexpr char kUpperDigits[] = "0123456789ABCDEF";
constexpr std::size_t kSpillBytes = 1 << 16;

void appendHex32(std::string& s, std::uint32_t v) {
  char text[10] = {'0', 'x'};
  for (int i = 0; i < 8; ++i) text[2 + i] = kDigits[(v >> (4 * (7 - i))) & 0xF];
  s.append(text, sizeof text);
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

TraceLine TraceLine::withQuoted(std::string_view call, std::string_view quotedTarget) {
  TraceLine line;
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
  return field(key, std::to_string(value));
}

TraceLine& TraceLine::signedNumber(std::string_view key, std::int64_t value) {
  return field(key, std::to_string(value));
}

TraceLine& TraceLine::hex(std::string_view key, std::uint32_t value) {
  std::string v;
  appendHex32(v, value);
  return field(key, v);
}

TraceLine& TraceLine::bytes(std::string_view key, const void* data, std::size_t size) {
  body_ += ' ';
  body_ += key;
  body_ += '=';
  const std::size_t at = body_.size();
  body_.resize(at + 2 * size);
  const auto* p = static_cast<const std::uint8_t*>(data);
  for (std::size_t i = 0; i < size; ++i) {
    body_[at + 2 * i] = kDigits[p[i] >> 4];
    body_[at + 2 * i + 1] = kDigits[p[i] & 15];
  }
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

TraceSink::TraceSink(std::FILE* out, std::function<std::uint64_t()> nowMs) : out_(out), nowMs_(std::move(nowMs)) {}

void TraceSink::open(Call& call) {
  call.ms = nowMs_();
  open_.push_back(&call);
}

TraceLine TraceSink::line(std::string_view call, std::string_view target) {
  for (const Quoted& q : quoted_)
    if (!q.quoted.empty() && q.target == target) return TraceLine::withQuoted(call, q.quoted);
  Quoted& q = quoted_[nextQuoted_];
  nextQuoted_ = (nextQuoted_ + 1) % quoted_.size();
  q.target = target;
  q.quoted = TraceLine::quote(target);
  return TraceLine::withQuoted(call, q.quoted);
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
  std::string body = std::move(line).take();
  const std::uint64_t number = next_++;
  char prefix[48] = "#";
  char* end = std::to_chars(prefix + 1, prefix + 24, number).ptr;
  *end++ = ' ';
  *end++ = 't';
  *end++ = '=';
  end = std::to_chars(end, prefix + sizeof prefix, call.ms).ptr;
  emit({std::string(prefix, end), number, call.ms, std::move(body)});
  closed(call);
}

void TraceSink::event(const TraceLine& line) {
  const std::uint64_t ms = nowMs_();
  Held h{"* t=" + std::to_string(ms), 0, ms, line.body()};
  if (!open_.empty()) queued_.push_back(std::move(h));
  else emit(std::move(h));
}

const TraceSink::Held& TraceSink::recent(std::size_t back) const {
  return recent_[(recentEnd_ + kRecent - 1 - back) % kRecent];
}

void TraceSink::remember(Held line) {
  recent_[recentEnd_] = std::move(line);
  recentEnd_ = (recentEnd_ + 1) % kRecent;
  if (recentCount_ < kRecent) ++recentCount_;
}

void TraceSink::emit(Held line) {
  if (period_ != 0) {
    if (recent(period_ - 1 - held_.size() % period_).body == line.body) {
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
    for (std::size_t i = 0; same && i < p; ++i) same = recent(i).body == recent(p + i).body;
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
    write({std::move(prefix), 0, 0, fold.body()});
    recentCount_ = 0;
    from = folded;
  }
  for (std::size_t i = from; i < held.size(); ++i) {
    write(held[i]);
    remember(std::move(held[i]));
  }
}

void TraceSink::write(const Held& line) {
  text_ += line.prefix;
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
