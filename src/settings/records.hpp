#pragma once
// Settings records of a project. Each record is a list of members in file
// order; the member framework reads, writes and resets them.

#include "kelvane/types.hpp"

namespace kelvane {

struct TrackSettings {
  PatternType type;
};

}  // namespace kelvane
