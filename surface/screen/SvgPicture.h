#pragma once

#include "surface/screen/Grid.h"

#include <string>

namespace Surface {

// Returns a grid as an SVG document, whose text is text that can be searched and read aloud. Equal
// grids and titles give equal documents, byte for byte.
std::string SvgPicture(const Grid& grid, const std::string& title);

} // namespace Surface
