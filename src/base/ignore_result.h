// The one way to drop a result on purpose. Results of calls that can fail
// are [[nodiscard]], so the compiler names every result left unread; where
// one is left unread by design, the call goes through here with the reason
// nothing is lost by it:
//
//   ignoreResult(SetAutoMount(ctx, false), "a failure to put automatic mounting back is not reported");
#pragma once

#include <cstddef>

namespace vmd {

template <class Result, std::size_t N>
constexpr void ignoreResult(Result&&, [[maybe_unused]] const char (&why)[N]) noexcept {
  static_assert(N > 1, "say why the result may be dropped");
}

}  // namespace vmd
