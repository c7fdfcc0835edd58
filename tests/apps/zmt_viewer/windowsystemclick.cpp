#include "windowsystemclick.h"

#include <memory>

#include <X11/Xlib.h>

void clickThroughWindowSystem(unsigned long window, int x, int y) {
    // A connection of its own, as another program has it.
    const std::unique_ptr<Display, int (*)(Display *)> display(XOpenDisplay(nullptr), XCloseDisplay);
    if (!display) return;
    XEvent event{};
    XButtonEvent & button = event.xbutton;
    button.window = window;
    button.root = DefaultRootWindow(display.get());
    button.x = x;
    button.y = y;
    button.button = Button1;
    button.same_screen = True;
    button.type = ButtonPress;
    XSendEvent(display.get(), window, True, ButtonPressMask, &event);
    button.type = ButtonRelease;
    button.state = Button1Mask;
    XSendEvent(display.get(), window, True, ButtonReleaseMask, &event);
    XFlush(display.get());
}
