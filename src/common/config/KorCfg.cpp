#include "invscan/KorCfg.h"

#include <map>

namespace {
std::map<String, String>& store() {
    static std::map<String, String> s;
    return s;
}
} // namespace

String KorCfg::getKey(const String& key) {
    auto it = store().find(key);
    return it == store().end() ? String() : it->second;
}

void KorCfg::setKey(const String& key, const String& value) {
    store()[key] = value;
}

void KorCfg::removeKey(const String& key) {
    store().erase(key);
}

void KorCfg::clear() {
    store().clear();
}
