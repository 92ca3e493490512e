#include "ProcessFixture.h"

#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <stdexcept>

#include "Files.h"
#include "Plists.h"

namespace testsupport {

std::string ProcessFixture::uniqueIdentifier() {
    static std::atomic<int> counter{0};
    return "io.tavio.test" + std::to_string(::getpid()) + "n" + std::to_string(++counter);
}

void ProcessFixture::installProgram(const std::string& program, const std::string& path) {
    // The program may be reached through a link (/bin/sh usually is).
    char* real = ::realpath(program.c_str(), nullptr);
    const auto bytes = real == nullptr ? std::nullopt : footprint::readFile(real);
    std::free(real);
    if (!bytes) {
        throw std::runtime_error("cannot read " + program);
    }
    if (const auto error = footprint::writeFile(path, *bytes, 0755)) {
        throw std::runtime_error(*error);
    }
}

std::string ProcessFixture::installBundle(const std::string& folder,
                                          const std::string& bundleID,
                                          const std::string& program,
                                          const std::string& appName,
                                          const std::string& executable) {
    const std::string contents = folder + "/" + appName + "/Contents";
    makeDirectories(contents + "/MacOS");
    const footprint::Plist info = footprint::dictionary({
        {"CFBundleIdentifier", plist_new_string(bundleID.c_str())},
        {"CFBundleExecutable", plist_new_string(executable.c_str())},
    });
    writeFile(contents + "/Info.plist", footprint::serialize(info, footprint::PlistFormat::xml));
    installProgram(program, contents + "/MacOS/" + executable);
    return contents + "/MacOS/" + executable;
}

std::unique_ptr<SpawnedProcess> ProcessFixture::startPlayer(const std::string& executable,
                                                            std::vector<std::string> options) {
    options.push_back("--exit-with-parent");
    auto player = std::make_unique<SpawnedProcess>(executable, options);
    if (!player->readUntil("ready")) {
        throw std::runtime_error("the player at " + executable + " did not get ready");
    }
    return player;
}

}  // namespace testsupport
