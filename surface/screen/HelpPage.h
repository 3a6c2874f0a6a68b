#pragma once

#include "surface/screen/Grid.h"

namespace Surface {

// Draws the page that lists all keys.
Grid DrawHelpPage(int rows, int columns);

} // namespace Surface
