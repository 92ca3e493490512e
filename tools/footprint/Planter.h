#pragma once

#include <sys/types.h>

#include <string>
#include <string_view>

#include "Files.h"
#include "Footprint.h"

namespace footprint {

// Creates files and folders while counting them into a PlantedFootprint, and
// keeps the first problem: after one, every further call does nothing and
// returns false, so a planting routine reads as a plain list of steps.
class Planter {
  public:
    explicit Planter(PlantedFootprint& planted) : planted_(planted) {}

    bool directory(const std::string& path, mode_t mode = 0755);
    bool file(const std::string& path, std::string_view bytes, mode_t mode = 0644);
    bool link(const std::string& target, const std::string& path);
    // A file of `size` deterministic bytes, seeded by its own path below `root`
    // so that the same layout gives the same bytes wherever it is planted.
    bool noise(const std::string& root, const std::string& relative, std::size_t size);
    void location(const std::string& path) { planted_.locations.push_back(path); }

    bool ok() const { return !error_; }
    const Error& error() const { return error_; }

  private:
    bool keep(Error error);

    PlantedFootprint& planted_;
    Error error_;
};

}  // namespace footprint
