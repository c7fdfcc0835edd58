#pragma once

#include <set>
#include <string>

#include <nlohmann/json.hpp>

#include "support/zmtrun.h"

/// The keys of `json`, at any depth, that README.md does not name.
inline std::set<std::string> undocumentedKeys(const nlohmann::json & json) {
    static const std::string readme = readWhole(ZMT_DATA_DIR "/../README.md");
    std::set<std::string> missing;
    if (json.is_object())
        for (const auto & [key, value] : json.items())
            if (readme.find("`" + key + "`") == std::string::npos) missing.insert(key);
    if (json.is_structured())
        for (const auto & value : json)
            missing.merge(undocumentedKeys(value));
    return missing;
}
