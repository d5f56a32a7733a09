#pragma once
// Pattern slots of a project.

#include "kelvane/types.hpp"

namespace kelvane {

struct Pattern {
  PatternType type;
};

}  // namespace kelvane
