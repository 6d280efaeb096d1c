#include "algocore/memory/APSAlgoMemTrace.h"

#include "algocore/utils/LogPrintf.h"
#include "algocore/utils/status_code.h"

// The hand-off record's six pointers, logged alike on refusal and on success.
#define APS_INFO_FORMAT                                                    \
    "input sAPSNativeMemLock:%p, sAPSNativeUsingSize:%p, sAPSMapLock:%p, " \
    "sAPSHardBuffLock:%p,sAPSMemMap:%p, "                                  \
    "sAPSRefNum:%p"
#define APS_INFO_ARGS(info)                                                                         \
    static_cast<void*>((info)->sAPSNativeMemLock), static_cast<void*>((info)->sAPSNativeUsingSize), \
        static_cast<void*>((info)->sAPSMapLock), static_cast<void*>((info)->sAPSHardBuffLock),      \
        static_cast<void*>((info)->sAPSMemMap), static_cast<void*>((info)->sAPSRefNum)

namespace vemo {

int32_t APSAlgoMemTrace::sAPSMemEnable = 0;
APSMemMapInfo APSAlgoMemTrace::sAPSMemInfo = {nullptr, nullptr, nullptr, nullptr, nullptr, nullptr};

int APSAlgoMemTrace::setAPSMemInfo(APSMemMapInfo* info) {
    sAPSMemEnable = 0;
    if (info == nullptr) {
        VEMO_LOGE("APSMemInfo is nullptr");
        return SDK_INPUT_BUFFER_NULL_ERR;
    }
    if (info->sAPSNativeMemLock == nullptr || info->sAPSNativeUsingSize == nullptr ||
        info->sAPSMapLock == nullptr || info->sAPSHardBuffLock == nullptr || info->sAPSMemMap == nullptr ||
        info->sAPSRefNum == nullptr) {
        VEMO_LOGE(APS_INFO_FORMAT, APS_INFO_ARGS(info));
        return SDK_INPUT_BUFFER_NULL_ERR;
    }
    VEMO_LOGI(APS_INFO_FORMAT, APS_INFO_ARGS(info));
    sAPSMemInfo = *info;
    sAPSMemEnable = 1;
    return SDK_SUCCESS;
}

// The complement keeps raw addresses out of the host's keys.
unsigned long long APSAlgoMemTrace::getHashCode(void* addr) {
    return ~static_cast<unsigned long long>(reinterpret_cast<uintptr_t>(addr));
}

unsigned long APSAlgoMemTrace::mapAPSNativeMapInsert(void* addr, unsigned long size, const char* file,
                                                     int line) {
    if (size == 0 || addr == nullptr || sAPSMemEnable == 0 || sAPSMemInfo.sAPSMemMap == nullptr) return 0;
    const unsigned long long key = getHashCode(addr);
    std::lock_guard<std::mutex> lock(*sAPSMemInfo.sAPSMapLock);
    APSNativeMemMap& map = *sAPSMemInfo.sAPSMemMap;
    if (map.count(key) != 0) {
        VEMO_LOGE("addr: [%p] had insert into aps map, ignore it!, Source File: %s, Line Num:%d", addr, file,
                  line);
        return 0;
    }
    APSNativeMemRecord& rec = map[key];
    rec.file = file != nullptr ? file : "";
    rec.line = line;
    rec.size = size;
    return size;
}

unsigned long APSAlgoMemTrace::mapAPSNativeMapDelete(void* addr, const char* file, int line) {
    if (addr == nullptr || sAPSMemEnable == 0 || sAPSMemInfo.sAPSMemMap == nullptr) return 0;
    std::lock_guard<std::mutex> lock(*sAPSMemInfo.sAPSMapLock);
    APSNativeMemMap& map = *sAPSMemInfo.sAPSMemMap;
    auto it = map.find(getHashCode(addr));
    if (it == map.end()) {
        VEMO_LOGI("addr: [%p] not in aps map!, Source File: %s, Line Num:%d", addr, file, line);
        return 0;
    }
    const unsigned long size = it->second.size;
    map.erase(it);
    return size;
}

void APSAlgoMemTrace::mapAPSNativeMemAdd(unsigned long size) {
    if (sAPSMemEnable == 0) return;
    std::lock_guard<std::mutex> lock(*sAPSMemInfo.sAPSNativeMemLock);
    *sAPSMemInfo.sAPSNativeUsingSize += size;
}

void APSAlgoMemTrace::mapAPSNativeMemDec(unsigned long size) {
    if (sAPSMemEnable == 0) return;
    std::lock_guard<std::mutex> lock(*sAPSMemInfo.sAPSNativeMemLock);
    *sAPSMemInfo.sAPSNativeUsingSize -= size;
}

int APSAlgoMemTrace::mapAPSHardwareBuffInsert(void* addr, unsigned long size, const char* file, int line,
                                              unsigned int a, unsigned int b, unsigned int c) {
    if (addr == nullptr || sAPSMemEnable == 0 || sAPSMemInfo.sAPSRefNum == nullptr) return 0;
    const unsigned long long key = getHashCode(addr);
    std::lock_guard<std::mutex> lock(*sAPSMemInfo.sAPSHardBuffLock);
    APSHardwareBuffMap& map = *sAPSMemInfo.sAPSRefNum;
    auto it = map.find(key);
    if (it != map.end()) {
        ++it->second.refs;
        VEMO_LOGI("addr: [%p] had insert into aps map,refs add 1", addr);
        return it->second.refs;
    }
    APSHardwareBuffRecord& rec = map[key];
    rec.file = file != nullptr ? file : "";
    rec.line = line;
    rec.size = size;
    rec.refs = 1;
    rec.a = a;
    rec.b = b;
    rec.c = c;
    return 1;
}

void APSAlgoMemTrace::mapAPSHardwareBuffDelete(void* addr, const char* file, int line) {
    if (addr == nullptr || sAPSMemEnable == 0 || sAPSMemInfo.sAPSRefNum == nullptr) return;
    std::lock_guard<std::mutex> lock(*sAPSMemInfo.sAPSHardBuffLock);
    APSHardwareBuffMap& map = *sAPSMemInfo.sAPSRefNum;
    auto it = map.find(getHashCode(addr));
    if (it == map.end()) {
        VEMO_LOGE("Hardware buff release :%p error! Source File: %s, Line Num: %d", addr, file, line);
        return;
    }
    if (it->second.refs-- == 1) map.erase(it);
}

}  // namespace vemo
