#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "SpawnedProcess.h"
#include "TempDir.h"

namespace testsupport {

// A temporary folder in which tests install app bundles around real
// programs and run them. Every test gets a bundle identifier of its own, so
// that copies run by tests in parallel never count as each other's.
class ProcessFixture : public ::testing::Test {
  protected:
    TempDir temp;
    const std::string identifier = uniqueIdentifier();

    static std::string uniqueIdentifier();

    // Installs <folder>/<appName> with an Info.plist declaring `bundleID` and
    // a copy of `program` as Contents/MacOS/<executable>; returns the copy's
    // path.
    std::string installBundle(const std::string& folder,
                              const std::string& bundleID,
                              const std::string& program = TAVIO_PLAYER_PATH,
                              const std::string& appName = "Tavio.app",
                              const std::string& executable = "Tavio");

  public:
    // Copies `program` to `path` (an executable file, outside any bundle
    // unless the path says otherwise).
    static void installProgram(const std::string& program, const std::string& path);

    // Starts tavio-player (or a copy of it) and waits until it is ready.
    static std::unique_ptr<SpawnedProcess> startPlayer(const std::string& executable,
                                                       std::vector<std::string> options = {});
};

}  // namespace testsupport
