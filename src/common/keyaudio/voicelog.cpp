#include "common/keyaudio/voicelog.h"

#include <cstdarg>

#include "common/usb_gun/usblog.h"

namespace {
ServiceLog audio_log;
}  // namespace

int audiolog_log_init(const char* path)
{
    return audio_log.open(path) ? 0 : -1;
}

int audiolog_log_write(const char* func, int line, const char* fmt, ...)
{
    va_list ap;
    va_start(ap, fmt);
    const int rc = audio_log.vwrite(func, line, fmt, ap);
    va_end(ap);
    return rc;
}

void audiolog_log_dumpdata(const uint8_t* data, int len)
{
    audio_log.dump(__func__, __LINE__, data, len);
}
