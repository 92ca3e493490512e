#pragma once

namespace app {

// Makes the window's push buttons and progress bars tell screen readers the
// truth. Qt Quick 6.4 reports every button as enabled and sensitive, and
// lets its press action through, even when the button is disabled; and a
// progress bar has neither a value nor a change event. The interfaces
// installed here answer from the control itself: a disabled button (or one
// inside a disabled part of the window, such as the screen behind an open
// alert) has neither state and offers no press action; the default button
// (`Accessible.defaultButton`) is marked default; a progress bar has a
// current, minimum and maximum value and announces each change.
//
// Call once, before the first window is created. Everything else about these
// controls (name, description, focus) still comes from the `Accessible`
// attached properties in QML.
void installAccessibleControls();

}  // namespace app
