#include "settings/descriptor_file.h"

#include <algorithm>

#include "base/bytes.h"
#include "base/format.h"
#include "settings/settings_record.h"

namespace vmd {

namespace {

using H = DiskSettingsRecord::Header;
using S = DiskSettingsRecord::Substance;
using F = DiskSettingsRecord::Format;
using I = DiskSettingsRecord::Image;

std::uint32_t at32(const std::uint8_t* p, std::size_t size, std::size_t at) {
  return static_cast<std::uint32_t>(getLE(p, size, at, 4));
}
std::uint16_t at16(const std::uint8_t* p, std::size_t size, std::size_t at) {
  return static_cast<std::uint16_t>(getLE(p, size, at, 2));
}

// The first fault of a record, with its text.
struct Fault {
  DescriptorFault kind = DescriptorFault::None;
  std::wstring text;
  explicit operator bool() const { return kind != DescriptorFault::None; }
};

Fault fault(DescriptorFault kind, std::wstring text) { return {kind, std::move(text)}; }

// A UTF-16 string of `bytes` bytes (terminator included) at `from` inside a
// section of `length` bytes that starts at `base`.
Fault checkString(const Bytes& r, std::size_t base, std::size_t length, std::size_t from, std::size_t bytes,
                  const wchar_t* what, const wchar_t* section) {
  if (bytes == 0) return {};
  if (from + bytes > length)
    return fault(DescriptorFault::StringOutside,
                 format(L"the %s of the %s section (%u bytes at offset %u) runs past the section's end (%u bytes)",
                        what, section, static_cast<unsigned>(bytes), static_cast<unsigned>(from),
                        static_cast<unsigned>(length)));
  if (bytes % 2 != 0 || get16(r, base + from + bytes - 2) != 0)
    return fault(DescriptorFault::StringUnterminated,
                 format(L"the %s of the %s section (%u bytes) does not end with a zero character", what, section,
                        static_cast<unsigned>(bytes)));
  return {};
}

// Where a section lies and whether its own fixed fields agree with the header.
Fault checkSection(const Bytes& r, DiskSettingsRecord::Section sec, std::size_t fixedSize, const wchar_t* name) {
  if (!sec.present()) return {};
  if (sec.offset < H::Size || static_cast<std::size_t>(sec.offset) + sec.length > r.size())
    return fault(DescriptorFault::SectionOutside,
                 format(L"the %s section (offset %u, length %u) does not lie within the record's %u bytes after "
                        L"its 64-byte header",
                        name, static_cast<unsigned>(sec.offset), static_cast<unsigned>(sec.length),
                        static_cast<unsigned>(r.size())));
  if (sec.length < fixedSize)
    return fault(DescriptorFault::SectionTooShort,
                 format(L"the %s section is %u bytes long, shorter than its %u-byte fixed part", name,
                        static_cast<unsigned>(sec.length), static_cast<unsigned>(fixedSize)));
  const std::uint32_t size = get32(r, sec.offset + 0u);
  if (size != fixedSize)
    return fault(DescriptorFault::SectionSize,
                 format(L"the %s section gives its fixed part as %u bytes, not %u", name, size,
                        static_cast<unsigned>(fixedSize)));
  const std::uint32_t length = get32(r, sec.offset + 4u);
  if (length != sec.length)
    return fault(DescriptorFault::SectionLength,
                 format(L"the %s section gives its length as %u bytes, the record's header as %u", name, length,
                        static_cast<unsigned>(sec.length)));
  return {};
}

Fault checkSubstance(const Bytes& r, DiskSettingsRecord::Section sec) {
  if (Fault f = checkSection(r, sec, S::FixedSize, L"substance")) return f;
  if (!sec.present()) return {};
  const std::size_t base = sec.offset;
  const std::size_t pathBytes = get16(r, base + S::PathBytes);
  if (Fault f = checkString(r, base, sec.length, S::Path, pathBytes, L"backing-file path", L"substance")) return f;
  const std::size_t count = get16(r, base + S::MaskCount);
  const std::size_t masks = get16(r, base + S::MaskOffset);
  if (count != 0 && (masks < S::FixedSize || masks + 8 * count > sec.length))
    return fault(DescriptorFault::MasksOutside,
                 format(L"the %u node masks of the substance section (at offset %u) do not lie within the "
                        L"section's %u bytes",
                        static_cast<unsigned>(count), static_cast<unsigned>(masks),
                        static_cast<unsigned>(sec.length)));
  return {};
}

Fault checkFormat(const Bytes& r, DiskSettingsRecord::Section sec) {
  if (Fault f = checkSection(r, sec, F::FixedSize, L"format")) return f;
  if (!sec.present()) return {};
  const std::size_t base = sec.offset;
  const std::size_t labelBytes = get16(r, base + F::LabelBytes);
  if (Fault f = checkString(r, base, sec.length, F::Label, labelBytes, L"volume label", L"format")) return f;
  if (get8(r, base + F::ExtraMask) & 0x04) {
    const std::size_t listBytes = get16(r, base + F::FolderBytes);
    const std::size_t list = get16(r, base + F::FolderOffset);
    if (list + listBytes > sec.length || (listBytes != 0 && list < F::Label))
      return fault(DescriptorFault::StringOutside,
                   format(L"the custom-folder list of the format section (%u bytes at offset %u) does not lie "
                          L"within the section's %u bytes",
                          static_cast<unsigned>(listBytes), static_cast<unsigned>(list),
                          static_cast<unsigned>(sec.length)));
  }
  return {};
}

Fault checkImage(const Bytes& r, DiskSettingsRecord::Section sec) {
  if (Fault f = checkSection(r, sec, I::FixedSize, L"image")) return f;
  if (!sec.present()) return {};
  const std::size_t pathBytes = get16(r, sec.offset + I::PathBytes);
  return checkString(r, sec.offset, sec.length, I::Path, pathBytes, L"image path", L"image");
}

}  // namespace

std::uint32_t InvertAndSum(std::uint8_t* data, std::size_t size) {
  std::uint32_t even = 0, odd = 0;
  std::size_t i = 0;
  for (; i + 1 < size; i += 2) {
    even += data[i];
    odd += data[i + 1];
    data[i] = static_cast<std::uint8_t>(~data[i]);
    data[i + 1] = static_cast<std::uint8_t>(~data[i + 1]);
  }
  if (i < size) {
    even += data[i];
    data[i] = static_cast<std::uint8_t>(~data[i]);
  }
  return even + odd;
}

Bytes BuildDescriptorBytes(Bytes& record, std::uint32_t magic, std::uint16_t variantCode, std::uint16_t driveLetter) {
  const std::uint32_t sum = InvertAndSum(record.data(), record.size());
  // One allocation for the header and the record.
  Bytes file(descriptor::HeaderBytes + record.size(), 0);
  put32(file, descriptor::MagicField, magic);
  put32(file, descriptor::HeaderSizeField, descriptor::HeaderBytes);
  put32(file, descriptor::PayloadSizeField, record.size());
  put16(file, descriptor::VariantField, variantCode);
  put16(file, descriptor::LetterField, driveLetter);
  put32(file, descriptor::ChecksumField, sum);
  std::copy(record.begin(), record.end(), file.begin() + descriptor::HeaderBytes);
  return file;
}

SysStatus WriteDescriptorFile(FileService& files, const std::wstring& path, Bytes& record, std::uint32_t magic,
                              std::uint16_t variantCode, std::uint16_t driveLetter) {
  return files.writeWhole(path, BuildDescriptorBytes(record, magic, variantCode, driveLetter));
}

std::wstring CheckSettingsRecord(const Bytes& r, DescriptorFault* kind) {
  auto report = [kind](Fault f) {
    if (kind) *kind = f.kind;
    return f.text;
  };
  if (r.size() < H::Size)
    return report(fault(DescriptorFault::RecordTooShort,
                        format(L"the settings record is %u bytes long, shorter than its 64-byte header",
                               static_cast<unsigned>(r.size()))));
  if (const std::uint32_t v = get32(r, H::HeaderSize); v != H::Size)
    return report(fault(DescriptorFault::RecordHeaderSize,
                        format(L"the settings record gives its header size as %u bytes, not 64", v)));
  if (const std::uint32_t v = get32(r, H::TotalLength); v != r.size())
    return report(fault(DescriptorFault::RecordLength,
                        format(L"the settings record gives its length as %u bytes, but the file holds %u", v,
                               static_cast<unsigned>(r.size()))));
  if (const std::uint32_t v = get32(r, H::Checksum); v != DiskSettingsRecord::checksum(r))
    return report(fault(DescriptorFault::RecordChecksum,
                        format(L"the settings record's own checksum is 0x%08X, but its bytes add up to 0x%08X", v,
                               DiskSettingsRecord::checksum(r))));
  if (Fault f = checkSubstance(r, DiskSettingsRecord::substance(r))) return report(std::move(f));
  if (Fault f = checkFormat(r, DiskSettingsRecord::format(r))) return report(std::move(f));
  if (Fault f = checkImage(r, DiskSettingsRecord::image(r))) return report(std::move(f));
  return report({});
}

DescriptorCheck CheckDescriptor(const std::uint8_t* data, std::size_t size) {
  namespace d = descriptor;
  DescriptorCheck c;
  c.magic = at32(data, size, d::MagicField);
  c.headerSize = at32(data, size, d::HeaderSizeField);
  c.payloadSize = at32(data, size, d::PayloadSizeField);
  c.variantCode = at16(data, size, d::VariantField);
  c.driveLetter = at16(data, size, d::LetterField);
  c.checksum = at32(data, size, d::ChecksumField);
  auto fail = [&c](DescriptorFault kind, std::wstring text) {
    c.fault = kind;
    c.problem = std::move(text);
    return c;
  };
  if (size < d::HeaderBytes)
    return fail(DescriptorFault::ShortHeader,
                format(L"the file is %u bytes long, shorter than the 32-byte header", static_cast<unsigned>(size)));
  if (c.magic != d::Magic)
    return fail(DescriptorFault::BadMagic,
                format(L"the file does not begin with the descriptor magic number 0x%08X (it has 0x%08X)", d::Magic,
                       c.magic));
  if (c.headerSize != d::HeaderBytes)
    return fail(DescriptorFault::BadHeaderSize,
                format(L"the header gives its size as %u bytes, not 32", c.headerSize));
  const std::uint64_t expected = std::uint64_t{d::HeaderBytes} + c.payloadSize;
  if (size < expected)
    return fail(DescriptorFault::Truncated,
                format(L"the file is %llu bytes long, but its header promises %llu (32 + a %u-byte settings record)",
                       static_cast<unsigned long long>(size), static_cast<unsigned long long>(expected),
                       c.payloadSize));
  if (size > expected)
    return fail(DescriptorFault::ExtraBytes,
                format(L"the file is %llu bytes long: %llu bytes follow the %u-byte settings record its header "
                       L"announces",
                       static_cast<unsigned long long>(size), static_cast<unsigned long long>(size - expected),
                       c.payloadSize));
  Bytes record(data + d::HeaderBytes, data + size);
  InvertAndSum(record.data(), record.size());
  c.computedSum = byteSum(record, 0);
  if (c.computedSum != c.checksum)
    return fail(DescriptorFault::BadChecksum,
                format(L"the header's checksum is 0x%08X, but the settings record's bytes add up to 0x%08X",
                       c.checksum, c.computedSum));
  c.record = std::move(record);
  DescriptorFault kind = DescriptorFault::None;
  std::wstring problem = CheckSettingsRecord(c.record, &kind);
  if (kind != DescriptorFault::None) return fail(kind, std::move(problem));
  return c;
}

}  // namespace vmd
