// The table and transcript presentation choices of the view-options window, and their reset.
#pragma once

class Defaults;

class ViewOptions {
public:
    // Writes the reset values explicitly, so the keys stop following the registration defaults; observers of
    // each key hear of it in the order the choices appear in the window.
    static void reset(Defaults& defaults);
};
