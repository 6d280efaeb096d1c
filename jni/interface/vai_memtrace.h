// Records a host uses to hand its own memory trace to the library (vemo::APSAlgoMemTrace).
// The host owns the maps, the counter and the locks; the library keeps pointers to them.
#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <string>

namespace vemo {

// One block of the host's block map.
struct APSNativeMemRecord {
    std::string file;
    int line = 0;
    unsigned long size = 0;
};

// One hardware buffer of the host's buffer map; the three values are the host's own.
struct APSHardwareBuffRecord {
    std::string file;
    int line = 0;
    unsigned long size = 0;
    int32_t refs = 0;
    unsigned int a = 0;
    unsigned int b = 0;
    unsigned int c = 0;
};

// Both maps are keyed by the complement of the address (APSAlgoMemTrace::getHashCode).
using APSNativeMemMap = std::map<unsigned long long, APSNativeMemRecord>;
using APSHardwareBuffMap = std::map<unsigned long long, APSHardwareBuffRecord>;

// Handed over once by the host; every pointer must be non-null.
struct APSMemMapInfo {
    std::mutex* sAPSNativeMemLock;
    uint64_t* sAPSNativeUsingSize;
    std::mutex* sAPSMapLock;
    std::mutex* sAPSHardBuffLock;
    APSNativeMemMap* sAPSMemMap;
    APSHardwareBuffMap* sAPSRefNum;
};

}  // namespace vemo
