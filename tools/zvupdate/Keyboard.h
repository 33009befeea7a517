#pragma once

/// Who has the keyboard of the desktop.
namespace Keyboard {

/// Whether no window of any application has it, as far as that can be learnt: from window managers
/// of X11. Elsewhere the desktop gives the keyboard to a new window, or does not, by itself. Main
/// thread of a QApplication only.
bool isFree();

} // namespace Keyboard
