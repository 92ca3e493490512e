#pragma once

// The engine with the real Linux adapters, over a footprint planted by the
// footprint library in a temporary home, with canaries beside it.
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "Canaries.h"
#include "Footprint.h"
#include "SpawnedProcess.h"
#include "TempDir.h"
#include "engine/UninstallEngine.h"
#include "platform/InstalledAppVerifier.h"
#include "platform/WorkspaceProcessControl.h"
#include "platform/linux/FilePreferencesAccess.h"
#include "target/InventoryBuilder.h"

namespace enginetest {

using engine::UninstallEngine;
using engine::UninstallEvent;
using target::Inventory;
using testsupport::SpawnedProcess;
using testsupport::TempDir;
using namespace std::chrono_literals;

// Each test process has a product identifier of its own: the process adapter
// finds every running player of the user, and tests run side by side.
inline const std::string kId = "io.tavio.Tavio.test" + std::to_string(::getpid());
inline constexpr const char* kHostID = "0123456789abcdef0123456789abcdef";

class EngineLinuxTest : public ::testing::Test {
  protected:
    void SetUp() override { plant(); }

    void plant() {
        footprint::FootprintOptions options;
        options.home = home();
        options.applications = apps();
        options.playerPath = TAVIO_PLAYER_PATH;
        options.hostID = kHostID;
        options.identifier = kId;
        options.appSizeMB = 1;
        options.cacheFiles = 300;
        options.largeCacheFiles = 1;
        options.largeCacheFileMB = 1;
        const auto planted = footprint::plantFootprint(options);
        ASSERT_TRUE(std::holds_alternative<footprint::PlantedFootprint>(planted))
            << std::get<std::string>(planted);
        const auto canaries = footprint::plantCanaries(home(), apps(), manifest());
        ASSERT_FALSE(canaries.has_value()) << *canaries;
    }

    std::string home() const { return temp_ / "home"; }
    std::string apps() const { return temp_ / "Applications"; }
    std::string manifest() const { return temp_ / "canaries.manifest"; }
    std::string player() const { return apps() + "/Tavio.app/Contents/MacOS/Tavio"; }

    target::UninstallContext context(uid_t uid = ::getuid()) const {
        auto made = target::UninstallContext::make(uid, {home(), "alice"}, kId);
        made.applicationDirectories = {apps(), home() + "/Applications"};
        return made;
    }

    UninstallEngine engine(std::chrono::milliseconds timeout = 10s, uid_t uid = ::getuid()) const {
        const auto ctx = context(uid);
        return UninstallEngine{
            ctx,
            std::make_shared<platform::WorkspaceProcessControl>(kId),
            std::make_shared<platform::FilePreferencesAccess>(
                home(),
                std::vector<platform::PreferencesHost>{platform::PreferencesHost::anyHost,
                                                       platform::PreferencesHost::currentHost},
                kHostID, uid),
            std::make_shared<platform::InstalledAppVerifier>(),
            timeout,
            50ms};
    }

    Inventory scan(const UninstallEngine& e) const {
        return target::InventoryBuilder{e.context, e.verifier, e.preferences, "Tavio.app"}.build();
    }

    // Starts the planted player and waits until the adapter sees it running.
    std::unique_ptr<SpawnedProcess> startPlayer(std::vector<std::string> arguments) {
        arguments.push_back("--exit-with-parent");
        auto process = std::make_unique<SpawnedProcess>(player(), arguments);
        EXPECT_TRUE(process->readUntil("ready").has_value());
        const platform::WorkspaceProcessControl control(kId);
        const auto deadline = std::chrono::steady_clock::now() + 5s;
        while (!control.isRunning() && std::chrono::steady_clock::now() < deadline) {
            std::this_thread::sleep_for(5ms);
        }
        EXPECT_TRUE(control.isRunning());
        return process;
    }

    void expectCanariesIntact() const {
        const auto check = footprint::checkCanaries(home(), apps(), manifest());
        ASSERT_TRUE(std::holds_alternative<footprint::CanaryCheck>(check));
        const auto& result = std::get<footprint::CanaryCheck>(check);
        EXPECT_TRUE(result.passed())
            << "missing " << result.missing.size() << ", changed " << result.changed.size();
    }

    void recordEvents(const UninstallEvent& event) {
        static const char* kinds[] = {"removing", "finished", "waitingForQuit"};
        events_.push_back(kinds[static_cast<int>(event.kind())]);
    }

    TempDir temp_;
    std::vector<std::string> events_;
};

}  // namespace enginetest
