// A command's world for the settings tests: a simulated machine, the real
// catalogue, and console streams that keep what was printed.
#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "controller/controller.h"
#include "platform/host.h"
#include "console/app.h"
#include "base/text_codec.h"
#include "sim/sim_platform.h"
#include "support/fakes.h"

namespace vmd::test {

class SimApp {
 public:
  explicit SimApp(sim::json state = sim::json::object())
      : machine(std::move(state)),
        catalog(makeHostCatalog()),
        platform(machine, streams, *catalog),
        io(streams, *catalog, platform.keys),
        options(io),
        controller(platform.setup, platform.io),
        app{platform.platform, io, options, controller} {
    controller.discover();
  }

  std::wstring err() const { return streams.err; }
  std::wstring out() const { return streams.out; }
  // How often the run called `api` so far.
  std::uint32_t apiCalls(const std::string& api) const {
    const sim::json& stats = machine.stats;
    if (!stats.is_object() || !stats.contains("api")) return 0;
    return stats["api"].value(api, 0u);
  }

  sim::Machine machine;
  CapturingStreams streams;
  std::unique_ptr<MessageCatalog> catalog;
  sim::SimPlatform platform;
  Output io;
  OptionScanner options;
  CVmDevControl controller;
  App app;
};

// An argument vector whose strings live as long as it does.
class Args {
 public:
  Args(std::initializer_list<std::wstring> args) : text_(args) {
    for (auto& a : text_) ptrs_.push_back(a.data());
    ptrs_.push_back(nullptr);
  }
  explicit Args(std::vector<std::wstring> args) : text_(std::move(args)) {
    for (auto& a : text_) ptrs_.push_back(a.data());
    ptrs_.push_back(nullptr);
  }
  Args(const Args&) = delete;
  Args& operator=(const Args&) = delete;

  int argc() const { return static_cast<int>(text_.size()); }
  wchar_t** argv() { return ptrs_.data(); }

 private:
  std::vector<std::wstring> text_;
  std::vector<wchar_t*> ptrs_;
};

}  // namespace vmd::test
