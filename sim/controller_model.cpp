#include "platform/platform.h"
#include "sim/controller_model.h"

#include "controller/codes.h"

namespace vmd::sim {

namespace {


}  // namespace

ControllerModel::Reply ControllerModel::handle(std::uint32_t code, const std::uint8_t* in, std::uint32_t inSize,
                                               std::uint8_t* out, std::uint32_t outSize) {
  switch (code) {
    case ioctl::QueryControllerVersion:
      return version(out, outSize);
    case ioctl::QueryDiskBitmap:
    case ioctl::QueryDiskInfo:
    case ioctl::QueryDeviceNumber:
    case ioctl::QueryDosNameTarget:
    case ioctl::QueryDosDeviceOwner:
      return diskRequest(code, in, inSize, out, outSize);
    case ioctl::QueryImStatus:
    case ioctl::SetImOptions:
    case ioctl::EnableIm:
    case ioctl::DisableIm:
      return imRequest(code, in, inSize, out, outSize);
    case ioctl::ReadDiskSettingsRecord:
    case ioctl::QueryDiskStatus:
      return recordRequest(code, in, inSize, out, outSize);
    default:
      return {0, syserr::InvalidFunction};
  }
}

ControllerModel::Reply ControllerModel::version(std::uint8_t* out, std::uint32_t outSize) {
  if (outSize < 12) return {0, syserr::InsufficientBuffer};
  const json& v = c_["version"];
  // A raw version word, when given, wins over major/minor: tests describe
  // controllers the major/minor form cannot.
  std::uint32_t word = v.contains("word") ? parseNumber(v["word"])
                                          : (parseNumber(v.value("major", json(5))) << 16) |
                                                (parseNumber(v.value("minor", json(7))) & 0xFFFF);
  std::uint32_t second = v.contains("secondWord") ? parseNumber(v["secondWord"])
                                                  : parseNumber(v.value("build", json(0))) << 16;
  putLe32(out, word);
  putLe32(out + 4, second);
  putLe32(out + 8, parseNumber(c_.value("variantCode", json(0))));
  return {12, 0};
}

}  // namespace vmd::sim
