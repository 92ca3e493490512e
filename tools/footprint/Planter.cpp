#include "Planter.h"

namespace footprint {

bool Planter::keep(Error error) {
    if (error) {
        error_ = std::move(error);
    }
    return ok();
}

bool Planter::directory(const std::string& path, mode_t mode) {
    return ok() && keep(makeDirectories(path, mode));
}

bool Planter::file(const std::string& path, std::string_view bytes, mode_t mode) {
    if (!ok() || !keep(writeFile(path, bytes, mode))) {
        return false;
    }
    planted_.files += 1;
    planted_.bytes += bytes.size();
    return true;
}

bool Planter::link(const std::string& target, const std::string& path) {
    return ok() && keep(makeLink(target, path));
}

bool Planter::noise(const std::string& root, const std::string& relative, std::size_t size) {
    return file(root + "/" + relative, deterministicBytes(relative, size));
}

}  // namespace footprint
