#pragma once

/// Runs the window until it is closed; the result is the exit status: 0, 1 for data, 2 for usage. To be
/// called once, by the main thread.
int runViewer(int argc, char ** argv);
