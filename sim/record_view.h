// The simulator's reading of a disk settings record: where its fields and
// sections lie, from the record layout alone. The program encodes the same
// layout on its own side; keeping the two apart lets each check the other.
// Every read is bounds-checked: a field outside the bytes reads as 0.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "base/bytes.h"
#include "sim/record_check.h"

namespace vmd::sim {

// Where a section lies in its bytes; a length of 0: absent.
struct RecordSection {
  std::size_t at = 0, len = 0;
  std::size_t end() const { return at + len; }
  explicit operator bool() const { return len != 0; }
};

// Bytes read field by field; the base of the record and section views.
class ByteView {
 public:
  explicit ByteView(const RecordBytes& bytes) : b_(bytes) {}
  std::uint64_t field(std::size_t at, int width) const { return getLE(b_.data(), b_.size(), at, width); }
  // The UTF-16 text from `from` up to its NUL, or to `end` or the bytes' end.
  std::u16string text(std::size_t from, std::size_t end) const {
    std::u16string s;
    for (std::size_t p = from; p + 1 < end && p + 1 < b_.size(); p += 2) {
      const auto c = static_cast<char16_t>(field(p, 2));
      if (c == 0) break;
      s += c;
    }
    return s;
  }
  const RecordBytes& bytes() const { return b_; }

 private:
  const RecordBytes& b_;
};

// The format section: the file system the controller lays down.
class FormatView : ByteView {
 public:
  FormatView(const RecordBytes& bytes, RecordSection s) : ByteView(bytes), s_(s) {}
  std::uint8_t fileSystem() const { return static_cast<std::uint8_t>(field(s_.at + 10, 1)); }
  std::uint32_t clusterBytes() const { return static_cast<std::uint32_t>(field(s_.at + 11, 1) << 9); }
  std::uint32_t serial() const { return static_cast<std::uint32_t>(field(s_.at + 12, 4)); }
  std::size_t labelBytes() const { return field(s_.at + 40, 2); }
  std::u16string label() const { return labelBytes() ? text(s_.at + 42, s_.end()) : std::u16string(); }

 private:
  RecordSection s_;
};

// The image section: the file a disk is loaded from and saved to.
class ImageView : ByteView {
 public:
  ImageView(const RecordBytes& bytes, RecordSection s) : ByteView(bytes), s_(s) {}
  std::uint32_t flags() const { return static_cast<std::uint32_t>(field(s_.at + 8, 4)); }
  std::uint8_t format() const { return static_cast<std::uint8_t>(field(s_.at + 12, 1)); }  // 0 PLAIN, 1 SMART, 2 COMPR
  std::uint8_t level() const { return static_cast<std::uint8_t>(field(s_.at + 13, 1)); }
  std::size_t pathBytes() const { return field(s_.at + 36, 2); }
  std::u16string path() const { return text(s_.at + 38, s_.end()); }

 private:
  RecordSection s_;
};

// The whole record: its header's fields and its three sections.
class RecordView : public ByteView {
 public:
  using ByteView::ByteView;
  std::uint64_t diskSize() const { return field(16, 8); }
  std::uint32_t diskFlags() const { return static_cast<std::uint32_t>(field(12, 4)); }
  bool directIo() const { return (diskFlags() >> 24 & 1) != 0; }
  std::uint8_t index() const { return static_cast<std::uint8_t>(field(24, 1)); }
  char16_t letter() const { return static_cast<char16_t>(field(26, 2)); }
  std::uint32_t signature() const { return static_cast<std::uint32_t>(field(28, 4)); }

  RecordSection substance() const { return section(40); }
  RecordSection format() const { return section(44); }
  RecordSection image() const { return section(48); }
  FormatView formatView() const { return {bytes(), format()}; }
  ImageView imageView() const { return {bytes(), image()}; }

 private:
  RecordSection section(std::size_t head) const { return {field(head, 2), field(head + 2, 2)}; }
};

}  // namespace vmd::sim
