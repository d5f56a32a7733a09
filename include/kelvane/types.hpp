#pragma once
// The value cells of a project and the named enumerations.
#include "kelvane/types_cells.hpp"
#include "kelvane/types_enums.hpp"
#include "kelvane/types_music.hpp"
