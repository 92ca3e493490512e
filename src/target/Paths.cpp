#include "target/Paths.h"

namespace target {

std::string withoutTrailingSlashes(std::string path) {
    while (path.size() > 1 && path.back() == '/') {
        path.pop_back();
    }
    return path;
}

std::string appendingPathComponent(std::string_view base, std::string_view component) {
    std::string path(base);
    if (path.empty() || path.back() != '/') {
        path += '/';
    }
    path += component;
    return path;
}

std::string displayPath(std::string_view path, std::string_view home) {
    if (path == home) {
        return "~";
    }
    if (path.size() > home.size() && path.starts_with(home) && path[home.size()] == '/') {
        return "~" + std::string(path.substr(home.size()));
    }
    return std::string(path);
}

}  // namespace target
