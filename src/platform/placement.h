#pragma once

#include <functional>

class QWidget;

namespace linkhop {

// A window placed by its outer frame before it shows misses its frame where the window manager
// tells the frame only once it has decorated the shown window (X11): the title bar lands above the
// intended place, the outer size comes out larger, and a window placed against it misses too.
// Where the frame is not known yet, this runs `place` once more when the window is first exposed
// with its frame known. Windows show in the order they are placed against one another, so each
// one's second placement reads the frames of the windows before it as they are.
void PlaceAgainOnceFramed(QWidget& window, std::function<void()> place);

} // namespace linkhop
