// The board's display side: the framebuffer probe of the main panel and the
// screen-direction request (not supported on this board).
#pragma once

struct _ScrInfo;
struct _OutputDev;

// Framebuffer size of the main panel, always taken as landscape.
extern int screen_width;
extern int screen_height;

// Reads the framebuffer's visible size from path (FBIOGET_VSCREENINFO):
// screen_width becomes the larger side, screen_height the smaller. A failed
// open or request keeps the old size.
void GetFbInfo(const char* path);
// Main screen size into scr (index 0) and out (connected). -1 for a null
// screen, else 0.
int proc_get_screen_info(_ScrInfo* scr, _OutputDev* out);
// Accepted and ignored on this board; returns 0.
int handle_screen_direction_set(int index, int direction);
