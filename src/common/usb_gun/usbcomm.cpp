#include "common/usb_gun/usbcomm.h"

#include "arm/hot_plug.h"

int AddEventToTactord(int event_index)
{
    return ADEventToTactord(event_index);
}

int RemoveEventFromTactord(int event_index)
{
    return RMEventFromTactord(event_index);
}
