#include "arm/screen_device_manager.h"

#include <fcntl.h>
#include <linux/fb.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>

#include "common/screen_manager.h"

// Until a framebuffer answers, the panel is taken as 1920 x 1080.
int screen_width = 1920;
int screen_height = 1080;

void GetFbInfo(const char* path)
{
    const int fd = open(path, O_RDWR);
    if (fd < 0) {
        std::printf("open framebuffer error! ");
        return;
    }
    fb_var_screeninfo info{};
    // A size outside 1..32767 is taken as a failed request: the pointer
    // arithmetic works on width - 1 and on sums of widths.
    if (ioctl(fd, FBIOGET_VSCREENINFO, &info) == 0 && output_size_ok(info.xres, info.yres)) {
        // The panel is always taken as landscape.
        screen_width = static_cast<int>(std::max(info.xres, info.yres));
        screen_height = static_cast<int>(std::min(info.xres, info.yres));
        std::printf("*******screen_width   %d    screen_height  %d\n", screen_width, screen_height);
    }
    // Closed after a failed request too: the descriptor is of no further use.
    close(fd);
}

int proc_get_screen_info(ScrInfo* scr, OutputDev* out)
{
    if (scr == nullptr)
        return -1;
    scr->index = 0;
    scr->width = screen_width;
    scr->height = screen_height;
    if (out != nullptr) {
        out->connect_state = 1;
        out->width = screen_width;
        out->height = screen_height;
    }
    return 0;
}

int handle_screen_direction_set(int, int)
{
    return 0;
}
