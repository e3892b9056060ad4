// Paths of what exists once per cell, one cell being one control plane of the box.
#pragma once

#include <string>

namespace Cell {

// The full path of a cell's copy.
[[nodiscard]] inline std::string path( std::string const & relative, unsigned cell ) {
   return "cell/" + std::to_string( cell ) + "/" + relative;
}

}  // namespace Cell
