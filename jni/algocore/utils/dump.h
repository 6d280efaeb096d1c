// Frame dumps for tuning: a frame is written to a file when its request number lies in the handle's
// dump range.
#pragma once

#include <cstdint>

#include "interface/vai_export.h"

// Filled by each back-end from its configuration. Requests dump_start <= req < dump_end are dumped.
struct DumpPars_ {
    uint8_t dump_enable;
    uint32_t dump_start;
    uint32_t dump_end;
};

// Broken-down local time as the platform gives it: month from 0, year from 1900.
struct DateTime_ {
    int32_t second;
    int32_t reserved;  // left untouched by GetDateTime
    int32_t minute;
    int32_t hour;
    int32_t day;
    int32_t month;
    int32_t year;
};

// Creates the dump directory when missing (whatever the switch says), then writes `size` bytes of
// `buf` to <dir>IMG<date>_req<req>_<width>x<height>_<tag>.<ext> if `req` is in range. Failures are
// only logged. On host builds the directory is $VAI_DUMP_DIR when set, with or without the final "/".
VAI_EXPORT void DumpFile(void* buf, unsigned int width, unsigned int height, unsigned int size,
                         char const* tag, char const* ext, unsigned long long req, DumpPars_* pars);
// Writes `size` bytes to `path`. Returns fclose's result, or -1 when the file cannot be opened.
VAI_EXPORT int WriteFile(char const* path, void* buf, int size);
// Fills `out` with the local time; returns 0, or -1 with `out` untouched when the clock fails.
VAI_EXPORT int GetDateTime(DateTime_* out);

// The directory DumpFile writes to.
const char* DumpDirectory();
