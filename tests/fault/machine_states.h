// Reading the machine states a run leaves before and after it, and taking
// out of a state what a command may change, so that the rest can be compared.
#pragma once

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "fault/tier_runs.h"

namespace vmd::fault {

// --- Reading states.

const json* diskOf(const json& s, int index);
std::vector<json> volumesOf(const json& s, int index);
std::vector<std::string> pathsOf(const json& volume);
bool isPathOf(const json& volume, const std::string& path);
bool hasLetter(const json& volume);
// A disk's signature as the first 8 hex digits of its MountedDevices data.
std::string signatureData(const json& disk);
bool carries(const json& value, const std::string& sigData);
json* mountedDevices(json& s);
const json* mountedDevices(const json& s);
const json* fileAt(const json& s, const std::string& path);
// The first place where two states differ, or "" when they do not.
std::string firstDifference(const json& a, const json& b, const std::string& at = "");

// Two states that must be equal but for parts named rules leave open: each
// allowed part is taken out of both, and a rule counts when its part differed.
class Allowance {
 public:
  Allowance(json a, json b) : a_(std::move(a)), b_(std::move(b)) {}
  void allow(bool when, const char* rule, const std::function<void(json&)>& strip) {
    if (!when) return;
    json a = a_, b = b_;
    strip(a);
    strip(b);
    if (a == a_ && b == b_) return;
    if (rule && firstDifference(a_, b_) != firstDifference(a, b)) rules_.push_back(rule);
    a_ = std::move(a);
    b_ = std::move(b);
  }
  bool equal() const { return a_ == b_; }
  std::string difference() const { return firstDifference(a_, b_); }
  const std::vector<const char*>& rules() const { return rules_; }

 private:
  json a_, b_;
  std::vector<const char*> rules_;
};
// --- What the command may change.

void eraseDisk(json& s, int index);
void eraseFile(json& s, const std::string& path);
void eraseValuesCarrying(json& s, const std::string& sigData);
void eraseNewValues(json& s, const json& s0);
// The image file a disk saves to, from its settings as the controller keeps them.
std::string imagePathOf(const json& s0, int index);
// The state without what the run's command may change.
json outsideScope(const RunSpec& spec, const json& s0, json s);

}  // namespace vmd::fault
