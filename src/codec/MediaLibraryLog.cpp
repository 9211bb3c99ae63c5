#include "codec/MediaLibraryLog.h"

extern "C" {
#include <libavutil/log.h>
}

#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "platform/Log.h"

namespace qm {

namespace {

void forwardLine(void* context, int level, const char* format, va_list arguments) {
    if (level > AV_LOG_WARNING) return;
    char line[1024];
    int prefix = 1;
    va_list copy;
    va_copy(copy, arguments);
    av_log_format_line2(context, level, format, copy, line, sizeof line, &prefix);
    va_end(copy);
    size_t length = std::strlen(line);
    while (length > 0 && (line[length - 1] == '\n' || line[length - 1] == '\r')) line[--length] = '\0';
    if (length > 0) QMLog("%s", line);
}

}  // namespace

void routeMediaLibraryLogToQMLog() { av_log_set_callback(forwardLine); }

}  // namespace qm
