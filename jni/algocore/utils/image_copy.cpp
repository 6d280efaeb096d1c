#include "algocore/utils/image_copy.h"

#include <cstring>

#include "algocore/utils/status_code.h"
#include "algocore/utils/vai_log.h"

using vAIPROC::VAI_IMG_;

namespace {
constexpr unsigned kMaxPlanes = sizeof(VAI_IMG_::plane_addr) / sizeof(VAI_IMG_::plane_addr[0]);
}  // namespace

int CopyImage(VAI_IMG_* out, VAI_IMG_* in) {
    if (out == nullptr || in == nullptr) {
        VAI_LOGE("In or out image is nullptr in CopyImage");
        return kNullImage;
    }
    if (in->img_num != out->img_num) {
        VAI_LOGE("img number of in(%d) and out(%d) is different in CopyImage!", in->img_num, out->img_num);
        return kImageCountMismatch;
    }
    const int count = in->img_num;
    for (int i = 0; i < count; ++i) {
        const VAI_IMG_& src = in[i];
        VAI_IMG_& dst = out[i];
        if (src.plane_num != dst.plane_num) {
            VAI_LOGE("img plane_num of in(%d) and out(%d) is different in CopyImage(image:%d), skip!",
                     src.plane_num, dst.plane_num, i);
            continue;
        }
        for (uint8_t p = 0; p < dst.plane_num; ++p) {
            if (p >= kMaxPlanes) {
                // The record has room for four planes; a larger count cannot be addressed.
                VAI_LOGE("img plane_num(%d) of image %d exceeds %u planes in CopyImage, skip the rest!",
                         dst.plane_num, i, kMaxPlanes);
                break;
            }
            if (src.plane_size[p] == dst.plane_size[p] && src.plane_addr[p] != dst.plane_addr[p]) {
                if (src.plane_size[p] != 0)
                    std::memcpy(dst.plane_addr[p], src.plane_addr[p], src.plane_size[p]);
            } else {
                VAI_LOGE(
                    "in_img(id:%d, palneId:%d, planeAddr:%p, planeSize:%d) and out_img(id:%d, palneId:%d, "
                    "planeAddr:%p, planeSize:%d)are dismatch in CopyImage, skip!",
                    i, p, src.plane_addr[p], src.plane_size[p], i, p, dst.plane_addr[p], dst.plane_size[p]);
            }
        }
    }
    return 0;
}

int CopyImage(void* out, void* in, unsigned int size) {
    if (out == nullptr || in == nullptr) {
        VAI_LOGE("In or out buf is nullptr in CopyImage");
        return kNullImage;
    }
    std::memcpy(out, in, size);
    return 0;
}
