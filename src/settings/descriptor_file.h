// The disk descriptor file: a 32-byte header, then a disk's settings record
// exactly as the controller handed it out, every byte inverted. The header
// carries the byte sum of the record before inversion. `export` writes it;
// the descriptor reader checks and shows it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "platform/platform.h"

namespace vmd {

// Field offsets of the header (all little-endian).
namespace descriptor {
constexpr std::uint32_t Magic = 0x86888444;
constexpr std::size_t HeaderBytes = 32;
constexpr std::size_t MagicField = 0;        // u32
constexpr std::size_t HeaderSizeField = 4;   // u32, HeaderBytes
constexpr std::size_t PayloadSizeField = 8;  // u32, the record's length
constexpr std::size_t VariantField = 12;     // u16, low half of the controller's variant code
constexpr std::size_t LetterField = 14;      // u16, a UTF-16 code unit
constexpr std::size_t ChecksumField = 16;    // u32, byte sum of the record before inversion
constexpr std::size_t ReservedField = 20;    // 12 zero bytes
}  // namespace descriptor

// Adds up the record's bytes and replaces each by its complement, in one
// walk over byte pairs (even and odd positions summed apart, a last odd byte
// on its own). Returns the plain byte sum modulo 2^32.
std::uint32_t InvertAndSum(std::uint8_t* data, std::size_t size);

// The whole file: header and inverted payload. Inverts `record` in place:
// the caller must not use it afterwards.
Bytes BuildDescriptorBytes(Bytes& record, std::uint32_t magic, std::uint16_t variantCode, std::uint16_t driveLetter);

// Creates or truncates `path` and writes the descriptor. Not ok with 110
// (ERROR_OPEN_FAILED) when the file cannot be created, or with 29
// (ERROR_WRITE_FAULT) when writing or closing fails; a failed write may leave
// a partial file. Inverts `record` in place, as BuildDescriptorBytes does.
SysStatus WriteDescriptorFile(FileService& files, const std::wstring& path, Bytes& record, std::uint32_t magic,
                              std::uint16_t variantCode, std::uint16_t driveLetter);

// What is wrong with a descriptor, the first fault found in reading order.
enum class DescriptorFault {
  None,
  ShortHeader,       // fewer than 32 bytes
  BadMagic,
  BadHeaderSize,
  Truncated,         // shorter than 32 + payload size
  ExtraBytes,        // longer than 32 + payload size
  BadChecksum,
  RecordTooShort,    // payload shorter than a record's 64-byte header
  RecordHeaderSize,  // the record's own header size is not 64
  RecordLength,      // the record's total length is not the payload size
  RecordChecksum,    // the record's own checksum does not match
  SectionOutside,    // a section's offset and length leave the record
  SectionTooShort,   // a section shorter than its fixed part
  SectionSize,       // a section's fixed-part size field is wrong
  SectionLength,     // a section's own length differs from the header's
  StringOutside,     // a path, label or folder list leaves its section
  StringUnterminated,
  MasksOutside,      // the node masks leave the substance section
};

struct DescriptorCheck {
  DescriptorFault fault = DescriptorFault::None;
  std::wstring problem;  // one sentence naming the fault; empty when valid
  // The header as read (fields the file is too short to hold stay 0).
  std::uint32_t magic = 0, headerSize = 0, payloadSize = 0, checksum = 0;
  std::uint16_t variantCode = 0, driveLetter = 0;
  std::uint32_t computedSum = 0;  // of the payload after inversion, when it was all there
  Bytes record;                   // the settings record, inverted back; filled when the outer checks pass

  bool valid() const { return fault == DescriptorFault::None; }
};

// Checks a whole descriptor file: magic, header size, length, checksum, then
// the settings record's header, lengths and offsets. Never reads outside
// data[0, size).
DescriptorCheck CheckDescriptor(const std::uint8_t* data, std::size_t size);

// The settings-record part of the check alone; the problem text, or empty.
std::wstring CheckSettingsRecord(const Bytes& record, DescriptorFault* fault = nullptr);

}  // namespace vmd
