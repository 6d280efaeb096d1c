#include "manifest.h"

#include <rapidjson/document.h>
#include <rapidjson/error/en.h>

#include <algorithm>
#include <cstdio>
#include <memory>

#include "algocore/utils/json_reader.h"

namespace pxrt_ref {

namespace {

// More tensors than any session of the library's back-ends uses.
constexpr size_t kMaxTensors = 8;

using rapidjson::Value;

struct TypeName {
    const char* name;
    ElementType type;
};
constexpr TypeName kTypes[] = {{"uint8", ElementType::kUint8},   {"int8", ElementType::kInt8},
                               {"uint16", ElementType::kUint16}, {"int16", ElementType::kInt16},
                               {"float32", ElementType::kFloat32}};

// A positive integer member that fits an int.
bool PositiveInt(const Value& v, const char* key, int* out) {
    auto it = v.FindMember(key);
    if (it == v.MemberEnd() || !it->value.IsInt() || it->value.GetInt() <= 0) return false;
    *out = it->value.GetInt();
    return true;
}

// An optional number member into `out`; false when present but not a number.
bool Number(const Value& v, const char* key, double* out) {
    auto it = v.FindMember(key);
    if (it == v.MemberEnd()) return true;
    if (!it->value.IsNumber()) return false;
    *out = it->value.GetDouble();
    return true;
}

// Sensor levels and colour order of a Bayer tensor: the network sees (element - black) / (white - black),
// and outputs are clipped to the white level.
bool ParseBayer(const Value& v, TensorDesc* t, std::string* why) {
    if (v.HasMember("scale") || v.HasMember("offset")) {
        *why = "\"bayer\" takes \"black_level\" and \"white_level\", not \"scale\" or \"offset\"";
        return false;
    }
    double black = 0, white = -1;
    if (!Number(v, "black_level", &black) || !Number(v, "white_level", &white) || !(black >= 0) ||
        !(white > black)) {
        *why = "\"bayer\" needs \"white_level\" above \"black_level\" (at least 0)";
        return false;
    }
    t->offset = black;
    t->scale = 1.0 / (white - black);
    t->ceiling = white;
    // Block positions of R, G on R's row, G on B's row, and B, for each order of the top-left 2x2.
    static const struct {
        const char* name;
        int cfa[4];
    } kOrders[] = {
        {"rggb", {0, 1, 2, 3}}, {"grbg", {1, 0, 3, 2}}, {"gbrg", {2, 3, 0, 1}}, {"bggr", {3, 2, 1, 0}}};
    auto cfa = v.FindMember("cfa");
    const std::string order = cfa == v.MemberEnd()    ? "rggb"
                              : cfa->value.IsString() ? cfa->value.GetString()
                                                      : "";
    for (const auto& o : kOrders) {
        if (order == o.name) {
            std::copy(o.cfa, o.cfa + 4, t->cfa);
            return true;
        }
    }
    *why = "\"cfa\" must be \"rggb\", \"grbg\", \"gbrg\" or \"bggr\"";
    return false;
}

bool ParseTensor(const Value& v, const std::string& where, TensorDesc* t, std::string* error) {
    auto fail = [&](const std::string& why) {
        *error = where + ": " + why;
        return false;
    };
    if (!v.IsObject()) return fail("not an object");
    auto name = v.FindMember("name");
    if (name == v.MemberEnd() || !name->value.IsString()) return fail("\"name\" must be a string");
    t->name = name->value.GetString();
    auto bytes = v.FindMember("bytes");
    if (bytes == v.MemberEnd() || !bytes->value.IsUint64() || bytes->value.GetUint64() == 0) {
        return fail("\"bytes\" must be a positive integer");
    }
    t->bytes = bytes->value.GetUint64();

    auto type = v.FindMember("type");
    if (type != v.MemberEnd()) {
        bool known = false;
        for (const TypeName& tn : kTypes) {
            if (type->value.IsString() && type->value.GetString() == std::string(tn.name)) {
                t->type = tn.type;
                known = true;
            }
        }
        if (!known) return fail("\"type\" must be uint8, int8, uint16, int16 or float32");
    }
    auto scale = v.FindMember("scale");
    if (scale != v.MemberEnd()) {
        if (!scale->value.IsNumber() || !(scale->value.GetDouble() > 0)) {
            return fail("\"scale\" must be a positive number");
        }
        t->scale = scale->value.GetDouble();
    }
    if (!Number(v, "offset", &t->offset)) return fail("\"offset\" must be a number");

    auto layout = v.FindMember("layout");
    const std::string kind = layout != v.MemberEnd() && layout->value.IsString() ? layout->value.GetString() : "";
    size_t elements = 0;
    std::string bayer_error;
    if (kind == "hwc") {
        t->layout = Layout::kHwc;
        if (!PositiveInt(v, "height", &t->height) || !PositiveInt(v, "width", &t->width) ||
            !PositiveInt(v, "channels", &t->channels)) {
            return fail("\"hwc\" needs positive \"height\", \"width\" and \"channels\"");
        }
        elements = static_cast<size_t>(t->height) * static_cast<size_t>(t->width) * static_cast<size_t>(t->channels);
    } else if (kind == "vector") {
        t->layout = Layout::kVector;
        if (!PositiveInt(v, "count", &t->count)) return fail("\"vector\" needs a positive \"count\"");
        elements = static_cast<size_t>(t->count);
    } else if (kind == "plane") {
        t->layout = Layout::kPlane;
        if (!PositiveInt(v, "count", &t->count) || !PositiveInt(v, "height", &t->height) ||
            !PositiveInt(v, "width", &t->width) || !PositiveInt(v, "channels", &t->channels)) {
            return fail("\"plane\" needs positive \"count\", \"height\", \"width\" and \"channels\"");
        }
        elements = static_cast<size_t>(t->count);
    } else if (kind == "unused") {
        t->layout = Layout::kUnused;
        return true;
    } else if (kind == "nv21" || kind == "bayer") {
        t->layout = kind == "nv21" ? Layout::kNv21 : Layout::kBayer;
        if (!PositiveInt(v, "height", &t->height) || !PositiveInt(v, "width", &t->width) ||
            t->height % 2 != 0 || t->width % 2 != 0) {
            return fail("\"" + kind + "\" needs positive even \"height\" and \"width\"");
        }
        elements = static_cast<size_t>(t->height) * static_cast<size_t>(t->width);
        if (kind == "nv21") {
            elements += elements / 2;
        } else if (!ParseBayer(v, t, &bayer_error)) {
            return fail(bayer_error);
        }
    } else {
        return fail("\"layout\" must be \"hwc\", \"vector\", \"plane\", \"unused\", \"nv21\" or \"bayer\"");
    }
    if (elements * ElementSize(t->type) != t->bytes) {
        return fail("\"bytes\" is " + std::to_string(t->bytes) + " but the layout holds " +
                    std::to_string(elements * ElementSize(t->type)));
    }
    return true;
}

bool ParseTensors(const Value& root, const char* key, std::vector<TensorDesc>* out, std::string* error) {
    auto it = root.FindMember(key);
    if (it == root.MemberEnd() || !it->value.IsArray() || it->value.Empty() ||
        it->value.Size() > kMaxTensors) {
        *error = std::string("\"") + key + "\" must be an array of 1 to " + std::to_string(kMaxTensors) +
                 " tensors";
        return false;
    }
    out->resize(it->value.Size());
    for (rapidjson::SizeType i = 0; i < it->value.Size(); ++i) {
        if (!ParseTensor(it->value[i], std::string(key) + "[" + std::to_string(i) + "]", &(*out)[i], error)) {
            return false;
        }
    }
    return true;
}

}  // namespace

size_t ElementSize(ElementType type) {
    switch (type) {
        case ElementType::kUint8:
        case ElementType::kInt8:
            return 1;
        case ElementType::kUint16:
        case ElementType::kInt16:
            return 2;
        case ElementType::kFloat32:
            return 4;
    }
    return 1;
}

int BlobChannels(const TensorDesc& t) {
    switch (t.layout) {
        case Layout::kNv21: return 6;
        case Layout::kBayer: return 4;
        case Layout::kHwc:
        case Layout::kPlane: return t.channels;
        default: return 1;
    }
}

std::vector<BlockSource> BlockSources(const TensorDesc& t) {
    const size_t w = static_cast<size_t>(t.width);
    std::vector<BlockSource> sources;
    for (int k = 0; k < 4; ++k) {
        const int pos = t.layout == Layout::kBayer ? t.cfa[k] : k;
        sources.push_back({(pos / 2) * w, 2 * w, pos % 2});
    }
    if (t.layout == Layout::kNv21) {
        const size_t chroma = w * static_cast<size_t>(t.height);
        sources.push_back({chroma, w, 0});
        sources.push_back({chroma, w, 1});
    }
    return sources;
}

bool LoadManifest(const char* path, Manifest* manifest, std::string* error) {
    const std::string where = std::string("manifest ") + (path ? path : "(null)");
    std::unique_ptr<FILE, int (*)(FILE*)> file(path && *path ? std::fopen(path, "rb") : nullptr, &std::fclose);
    if (!file) {
        *error = "cannot open " + where;
        return false;
    }
    rapidjson::Document doc;
    const rapidjson::ParseResult parsed = vai::JsonParseStream(file.get(), doc);
    if (parsed.IsError()) {
        *error = where + ": JSON error at offset " + std::to_string(parsed.Offset()) + ": " +
                 (parsed.Code() == rapidjson::kParseErrorTermination
                      ? "nested deeper than " + std::to_string(vai::kJsonMaxDepth) + " levels"
                      : rapidjson::GetParseError_En(parsed.Code()));
        return false;
    }
    if (!doc.IsObject()) {
        *error = where + ": not a JSON object";
        return false;
    }
    auto onnx = doc.FindMember("onnx");
    if (onnx == doc.MemberEnd() || !onnx->value.IsString() || onnx->value.GetStringLength() == 0) {
        *error = where + ": \"onnx\" must name the network file";
        return false;
    }
    std::string onnx_path = onnx->value.GetString();
    const std::string manifest_path = path;
    const size_t slash = manifest_path.rfind('/');
    if (onnx_path[0] != '/' && slash != std::string::npos) {
        onnx_path = manifest_path.substr(0, slash + 1) + onnx_path;
    }
    Manifest m;
    m.onnx_path = onnx_path;
    std::string why;
    if (!ParseTensors(doc, "inputs", &m.inputs, &why) || !ParseTensors(doc, "outputs", &m.outputs, &why)) {
        *error = where + ": " + why;
        return false;
    }
    for (const TensorDesc& t : m.outputs) {
        if (t.layout == Layout::kUnused || t.layout == Layout::kPlane) {
            *error = where + ": output \"" + t.name + "\" cannot be \"unused\" or \"plane\"";
            return false;
        }
    }
    *manifest = std::move(m);
    return true;
}

}  // namespace pxrt_ref
