#include "algocore/utils/dump.h"

#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "algocore/utils/host_override.h"
#include "algocore/utils/vai_log.h"

namespace {
constexpr const char* kDumpDirectory = "/data/vendor/camera/videoai/";
constexpr size_t kPathSize = 256;
}  // namespace

const char* DumpDirectory() {
    return vai::HostOverride("VAI_DUMP_DIR", kDumpDirectory);
}

int GetDateTime(DateTime_* out) {
    if (out == nullptr) return -1;
    timeval tv{};
    if (gettimeofday(&tv, nullptr) != 0) return -1;
    const time_t seconds = tv.tv_sec;
    const tm* local = localtime(&seconds);
    if (local == nullptr) return -1;
    out->second = local->tm_sec;
    out->minute = local->tm_min;
    out->hour = local->tm_hour;
    out->day = local->tm_mday;
    out->month = local->tm_mon;
    out->year = local->tm_year;
    return 0;
}

int WriteFile(char const* path, void* buf, int size) {
    FILE* file = path != nullptr ? std::fopen(path, "wb") : nullptr;
    if (file == nullptr) {
        const int err = path != nullptr ? errno : EINVAL;
        VAI_LOGE("not find file_path %s", path != nullptr ? path : "(null)");
        VAI_LOGE("[saveYuvFile] open fail errno = %d, reason = %s", err, std::strerror(err));
        return -1;
    }
    VAI_LOGE("write file_path %s", path);
    if (buf != nullptr && size > 0) std::fwrite(buf, 1, static_cast<size_t>(size), file);
    return std::fclose(file);
}

void DumpFile(void* buf, unsigned int width, unsigned int height, unsigned int size, char const* tag,
              char const* ext, unsigned long long req, DumpPars_* pars) {
    const char* dir = DumpDirectory();
    if (access(dir, F_OK) != 0) mkdir(dir, 0775);

    if (pars == nullptr || pars->dump_enable == 0) return;
    if (static_cast<unsigned long long>(pars->dump_start) > req) return;
    if (static_cast<unsigned long long>(pars->dump_end) <= req) return;

    // A failing clock leaves the date fields zero rather than undefined.
    DateTime_ now{};
    GetDateTime(&now);
    char path[kPathSize] = {};
    // A host override may omit the final "/"; the files still go into the directory.
    const size_t dirLength = std::strlen(dir);
    const char* separator = dirLength > 0 && dir[dirLength - 1] != '/' ? "/" : "";
    std::snprintf(path, sizeof(path), "%s%sIMG%04d%02d%02d%02d%02d%02d_req%ld_%dx%d_%s.%s", dir, separator,
                  now.year + 1900, now.month + 1, now.day, now.hour, now.minute, now.second,
                  static_cast<long>(req), static_cast<int>(width), static_cast<int>(height),
                  tag != nullptr ? tag : "", ext != nullptr ? ext : "");
    WriteFile(path, buf, static_cast<int>(size));
}
