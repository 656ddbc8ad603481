// The pure parts of `save`: the -F word, the format rule, and the save
// request the controller is sent.
#pragma once

#include <cstdint>
#include <string>

#include "platform/platform.h"

namespace vmd {

struct ImageFormatChoice {
  std::uint32_t format = 0;  // imageformat::
  std::int32_t level = 1;    // COMPR level as read; clamped by ApplyFormatRule
};

// Applies one -F word to `choice`, without regard to case: "smart" gives
// SMART; "compr" alone COMPR with level 0; "compr?<n>" COMPR with level n;
// every other word PLAIN, silently. The level is left alone unless COMPR.
void ApplyImageFormatWord(ImageFormatChoice& choice, const std::wstring& word);

// A disk that can hold a SMART image saves COMPR as SMART; one that cannot
// saves SMART as PLAIN. A level of 1 or more is held to 9; below 1 it is 1.
ImageFormatChoice ApplyFormatRule(ImageFormatChoice choice, bool smartCapable);

// The record inside the save request, laid out as an image section: 40 bytes
// without a target (the disk's own image file), else 38 + the bytes of
// "\DosDevices\" + target and its terminator.
Bytes BuildSaveImageRecord(const std::wstring* target, std::uint32_t imageFlags, std::uint8_t format,
                           std::uint8_t level);

// The whole request for disk `index`: head lengths 16 and 16 + record, the
// address, the record's length, then the record.
Bytes BuildSaveImageRequest(std::uint8_t index, const Bytes& record);

}  // namespace vmd
