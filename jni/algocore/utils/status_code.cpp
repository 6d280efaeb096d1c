#include "algocore/utils/status_code.h"

#include <cstddef>

namespace {

struct Block {
    int first;
    const char* const* names;
    size_t count;
};

const char* const kBlock0[] = {
    "SDK_SUCCESS",
    "SDK_INIT_ERROR",
    "SDK_PROCESS_ERROR",
    "SDK_UNINIT_ERROR",
    "SDK_DUMP_ERROR",
    "SDK_OUT_OF_TIME_ERR",
    "SDK_INVALID_MODEL_ERR",
    "SDK_DIRECTORY_NOT_FOUND_ERR",
    "SDK_NO_INIT",
    "SDK_BAD_INDEX",
    nullptr,  // 10
    nullptr,  // 11
    nullptr,  // 12
    nullptr,  // 13
    nullptr,  // 14
    nullptr,  // 15
    "SDK_TYPE_NOT_DEFINE",
};
const char* const kBlock100[] = {
    "SDK_FILE_BASE_ERR",
    "SDK_FILE_OPEN_ERR",
    "SDK_FILE_READ_ERR",
    "SDK_FILE_WRITE_ERR",
    "SDK_FILE_SAVE_ERR",
    "SDK_FILE_CLOSE_ERR",
    "SDK_FILE_RENAME_ERR",
    "SDK_FILE_REMOVE_ERR",
    "SDK_FILE_EXIST_ERR",
    "SDK_FILE_NOT_EXIST_ERR",
    "SDK_FILE_EMPTY_ERR",
    "SDK_FILE_OUT_OF_SIZE_ERR",
    "SDK_FILE_NO_READ_PERMISSION_ERR",
    "SDK_FILE_NO_WRITE_PERMISSION_ERR",
    "SDK_FILE_NO_EXCUTE_PERMISSION_ERR",
    "SDK_FILE_SEEK_ERR",
    "SDK_FILE_REWIND_ERR",
};
const char* const kBlock200[] = {
    "SDK_IMAGE_BASE_ERR",        "SDK_IMAGE_FORMAT_ERR",      "SDK_IMAGE_SIZE_ERR",
    "SDK_IMAGE_WIDTH_ERR",       "SDK_IMAGE_HEIGHT_ERR",      "SDK_IMAGE_STRIDE_ERR",
    "SDK_IMAGE_SCANLINE_ERR",    "SDK_IMAGE_ORIENTATION_ERR", "SDK_IMAGE_CHANNEL_ERR",
    "SDK_IMAGE_BUFFER_TYPE_ERR", "SDK_IMAGE_BIT_DEPTH_ERR",   "SDK_IMAGE_READ_ERR",
    "SDK_IMAGE_SAVE_ERR",        "SDK_IMAGE_FORMAT_CVT_ERR",  "SDK_IMAGE_RESIZE_ERR",
    "SDK_IMAGE_ROTATE_ERR",      "SDK_IMAGE_FLIP_ERR",        "SDK_IMAGE_UNKNOW_RESOLUTION",
};
const char* const kBlock300[] = {
    "SDK_DATA_BASE_ERR",
    "SDK_INVALID_ARGUMENT_ERR",
    "SDK_INPUT_ARGUMENT_ERR",
    "SDK_OUTPUT_ARGUMENT_ERR",
    "SDK_VALUE_OUT_OF_RANGE_ERR",
    "SDK_VALUE_ZERO_ERR",
    "SDK_INDEX_OUT_OF_BOUNDS_ERR",
    "SDK_DATA_TYPE_ERR",
    "SDK_INVALID_FACEINFO_ERR",
    "SDK_UNDEFINED_ASPECT_RATIO",
    nullptr,  // 778
    nullptr,  // 779
    nullptr,  // 780
    nullptr,  // 781
    nullptr,  // 782
    nullptr,  // 783
    "SDK_UNDEFINED_FXY",
};
const char* const kBlock400[] = {
    "SDK_SYS_BASE_ERR",
    "SDK_NULL_POINTER_ERR",
    "SDK_INVALID_HANDLE_ERR",
    "SDK_INPUT_BUFFER_NULL_ERR",
    "SDK_OUTPUT_BUFFER_NULL_ERR",
    "SDK_BUFFER_NULL_ERR",
    "SDK_CREATE_THREAD_ERR",
    "SDK_JOIN_THREAD_ERR",
    "SDK_EXIT_THREAD_ERR",
    "SDK_CANCEL_THREAD_ERR",
    "SDK_DETACH_THREAD_ERR",
    "SDK_SET_THREAD_NAME_ERR",
    "SDK_SET_THREAD_PRIORITY_ERR",
    "SDK_GET_THREAD_PRIORITY_ERR",
    "SDK_THREAD_RUNNING",
    "SDK_MEMORY_ALLOCATE_ERR",
    "SDK_MEMORY_FREE_ERR",
    "SDK_OUT_OF_MEMORY_ERR",
    "SDK_NOT_FOUND",
};
const char* const kBlock500[] = {
    "SDK_IMAGEALGOAPI_BASE",
    "SDK_ALGOINITHANDLE_ERROR",
    "SDK_STARTPROCESS_ERROR",
    "SDK_STOPPROCESS_ERROR",
    "SDK_GETPROCESSIMAGERESULT_ERROR",
    "SDK_SETPARAMETERS_ERROR",
    "SDK_PROCESSIMAGE_ERROR",
    "SDK_SINGLEPROCESSIMAGE_ERROR",
    "SDK_MULTIPROCESSIMAGE_ERROR",
    "SDK_RELEASEHANDLE_ERROR",
    "SDK_DUMPIMAGE_ERROR",
    "SDK_GETMEMORYINFO_ERROR",
};
const char* const kBlock600[] = {
    "SDK_ERR_UNSUPPORT",
    "SDK_ERR_ZERO_DIVISION",
};
const char* const kBlock700[] = {
    "SDK_MESH_NOT_INIT",        "SDK_MESH_HAS_NAN_VALUE", "SDK_MESH_CHECK_FAIL",
    "SDK_MESH_UNDISTORTION_PP", "SDK_MESH_CALC_WI_NULL",
};
const char* const kBlockE000[] = {
    "SDK_WARNING_FACE_STR_NULL",
    "SDK_WARNING_NONE_OBJECT",
    "SDK_WARNING_GET_IMAGE_PROFILE_NULL",
    "SDK_WARNING_SET_IMAGE_PROFILE_FAIL",
    "SDK_WARNING_NEED_FLAG_IS_0",
    "SDK_WARNING_ALL_FACE_PROTECT",
    "SDK_WARNING_FACE_CNT",
    "SDK_WARNING_NOT_SUPPORT_SENSOR_MODE_INIT",
    "SDK_WARNING_NOT_SUPPORT_SENSOR_MODE_PROCESS",
    "SDK_WARNING_NOT_SUPPORT_IMAGE_FORMAT",
    nullptr,  // 57354
    nullptr,  // 57355
    nullptr,  // 57356
    nullptr,  // 57357
    nullptr,  // 57358
    nullptr,  // 57359
    "SDK_WARNING_NOT_SUPPORT_SET_PARAMS",
    "SDK_WARNING_NOT_SUPPORT_FUNCTION",
};

const char* const kBlockFFFE[] = {
    "SDK_UNKNOWN_ERR",
    "SDK_FAILURE",
};

template <size_t N>
constexpr Block MakeBlock(int first, const char* const (&names)[N]) {
    return Block{first, names, N};
}

const Block kBlocks[] = {
    MakeBlock(0, kBlock0),        MakeBlock(256, kBlock100),  MakeBlock(512, kBlock200),
    MakeBlock(768, kBlock300),    MakeBlock(1024, kBlock400), MakeBlock(1280, kBlock500),
    MakeBlock(1536, kBlock600),   MakeBlock(1792, kBlock700), MakeBlock(57344, kBlockE000),
    MakeBlock(65534, kBlockFFFE),
};

}  // namespace

const char* statusToString(int status) {
    for (const Block& block : kBlocks) {
        if (status >= block.first && static_cast<size_t>(status - block.first) < block.count) {
            return block.names[status - block.first];
        }
    }
    return nullptr;
}
