// The hot-plug monitor: polls the sixteen nodes "/dev/event%d" every 200 ms,
// reports appearing and vanishing devices to the registry, and lends single
// nodes to the scanner service. Also the classification of evdev nodes.
#pragma once

// Result of Get_EventDeviceType; -1 when no kind is recognised.
enum USB_DEVICE_TYPE_S : int {
    USB_INPUT_MOUSE = 0,
    USB_INPUT_TOUCHSCREEN = 1,
    USB_INPUT_KEYBOARD = 2,
    USB_INPUT_OTHER = 3,
    USB_INPUT_UNKNOW = 4,
};

// Classifies the node by its capability bits; *need_cali is written only for
// touchscreens.
int Get_EventDeviceType(const char* devnode, int* need_cali);

int start_hotplug_service();
int device_init();
void stop_hotplug_service();
void close_udev_monitor(int);
void restart_hotplug_service();

// The scanner service takes node n over, and gives it back. Both return 0.
int RMEventFromTactord(int n);
int ADEventToTactord(int n);
