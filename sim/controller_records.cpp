#include "sim/controller_model.h"

namespace vmd::sim {

ControllerModel::Reply ControllerModel::recordRequest(std::uint32_t, In, std::uint32_t, Out,
                                                  std::uint32_t) {
  return {0, 1};  // not answered yet
}

}  // namespace vmd::sim
