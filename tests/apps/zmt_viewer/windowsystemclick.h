#pragma once

/// Clicks with the left mouse button at a place of a window, in pixels from its upper left corner, as the
/// window system tells it: the click waits in the queue until the program takes the user's input. Clicks of
/// the test library take a short cut. `window` is that of X11.
void clickThroughWindowSystem(unsigned long window, int x, int y);
