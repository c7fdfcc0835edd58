#pragma once

/// Settings of the window system that must be made before the QApplication: contexts of windows share with
/// each other, and are made by EGL, so that they share with those of the engine.
void prepareWindowSystem();

/// Runs the window until it is closed; the result is the exit status: 0, 1 for data, 2 for usage. To be
/// called once, by the main thread.
int runViewer(int argc, char ** argv);
