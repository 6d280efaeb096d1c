#include <sys/system_properties.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "vai_host_platform.h"

// prop_info is opaque to callers; here it is the stored entry itself.
struct prop_info {
    std::string name;
    std::string value;
    uint32_t serial = 0;
    bool set = false;  // entries are kept for good once made, so prop_info pointers stay valid
};

namespace {

struct Store {
    std::mutex lock;
    std::map<std::string, std::unique_ptr<prop_info>> props;
    bool seeded = false;
};

Store& TheStore() {
    static Store* store = new Store;  // outlives every static destructor that might log
    return *store;
}

std::string Trim(const std::string& s) {
    size_t b = s.find_first_not_of(" \t\r");
    if (b == std::string::npos) return "";
    size_t e = s.find_last_not_of(" \t\r");
    return s.substr(b, e - b + 1);
}

void SetLocked(Store& st, const std::string& name, const std::string& value) {
    auto& slot = st.props[name];
    if (!slot) slot.reset(new prop_info{name, "", 0, false});
    slot->value = value.substr(0, PROP_VALUE_MAX - 1);
    slot->set = true;
    ++slot->serial;
}

// Seeds from VAI_PROPERTY_FILE: `key=value` lines, '#' starts a comment line.
void SeedLocked(Store& st) {
    if (st.seeded) return;
    st.seeded = true;
    const char* path = std::getenv("VAI_PROPERTY_FILE");
    if (path == nullptr || *path == '\0') return;
    std::ifstream in(path);
    std::string line;
    while (std::getline(in, line)) {
        std::string t = Trim(line);
        if (t.empty() || t[0] == '#') continue;
        size_t eq = t.find('=');
        if (eq == std::string::npos) continue;
        std::string key = Trim(t.substr(0, eq));
        if (!key.empty()) SetLocked(st, key, Trim(t.substr(eq + 1)));
    }
}

}  // namespace

extern "C" void vai_host_reset_properties(void) {
    Store& st = TheStore();
    std::lock_guard<std::mutex> lock(st.lock);
    for (auto& kv : st.props) {
        kv.second->value.clear();
        kv.second->set = false;
        ++kv.second->serial;
    }
    st.seeded = false;
    SeedLocked(st);
}

extern "C" int __system_property_get(const char* name, char* value) {
    if (value == nullptr) return 0;
    value[0] = '\0';
    if (name == nullptr) return 0;
    Store& st = TheStore();
    std::lock_guard<std::mutex> lock(st.lock);
    SeedLocked(st);
    auto it = st.props.find(name);
    if (it == st.props.end() || !it->second->set) return 0;
    std::memcpy(value, it->second->value.c_str(), it->second->value.size() + 1);
    return static_cast<int>(it->second->value.size());
}

extern "C" int __system_property_set(const char* name, const char* value) {
    if (name == nullptr || *name == '\0') return -1;
    if (value == nullptr) value = "";
    if (std::strlen(value) >= PROP_VALUE_MAX) return -1;
    Store& st = TheStore();
    std::lock_guard<std::mutex> lock(st.lock);
    SeedLocked(st);
    SetLocked(st, name, value);
    return 0;
}

extern "C" const prop_info* __system_property_find(const char* name) {
    if (name == nullptr) return nullptr;
    Store& st = TheStore();
    std::lock_guard<std::mutex> lock(st.lock);
    SeedLocked(st);
    auto it = st.props.find(name);
    return it == st.props.end() || !it->second->set ? nullptr : it->second.get();
}

extern "C" void __system_property_read_callback(const prop_info* pi,
                                                void (*callback)(void*, const char*, const char*, uint32_t),
                                                void* cookie) {
    if (pi == nullptr || callback == nullptr) return;
    std::string name, value;
    uint32_t serial;
    {
        std::lock_guard<std::mutex> lock(TheStore().lock);
        name = pi->name;
        value = pi->value;
        serial = pi->serial;
    }
    callback(cookie, name.c_str(), value.c_str(), serial);
}

extern "C" int __system_property_foreach(void (*propfn)(const prop_info*, void*), void* cookie) {
    if (propfn == nullptr) return -1;
    std::vector<const prop_info*> all;
    {
        Store& st = TheStore();
        std::lock_guard<std::mutex> lock(st.lock);
        SeedLocked(st);
        for (auto& kv : st.props) {
            if (kv.second->set) all.push_back(kv.second.get());
        }
    }
    // Called without the lock so callbacks may read properties themselves.
    for (const prop_info* pi : all) propfn(pi, cookie);
    return 0;
}
