#pragma once

class QSettings;
class QWidget;

namespace gui {

// Size, position and maximised state of a window in the open group of a settings store, under the
// keys "size", "pos" and "fullscreen". A window without stored values comes up centred on the
// primary screen at its current size.

// Returns whether the window was maximised; the caller maximises it once it has restored the rest.
bool restorePlacement(QWidget& window, QSettings& settings);
void savePlacement(QWidget const& window, QSettings& settings);

} // namespace gui
