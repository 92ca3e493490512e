#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <map>
#include <string>

#include "RemovalPrinting.h"
#include "SyscallHooks.h"
#include "TempDir.h"
#include "removal/SafeRemover.h"

// A fresh temporary folder with an anchor "anchor" in it and a canary folder
// "outside" beside it, whose files must survive every test unchanged.
class RemovalTest : public ::testing::Test {
  protected:
    void SetUp() override {
        testsupport::makeDirectories(anchor());
        testsupport::makeDirectories(outside());
        for (int i = 0; i < 3; ++i) {
            const std::string name = "canary" + std::to_string(i);
            canaries_[name] = "precious " + name;
            testsupport::writeFile(outside() + "/" + name, canaries_[name]);
        }
    }

    void TearDown() override { hooks::clearHooks(); }

    std::string anchor() const { return temp_ / "anchor"; }
    std::string outside() const { return temp_ / "outside"; }
    std::string at(const std::string& relative) const { return anchor() + "/" + relative; }

    removal::SafeRemover remover(bool requiresOwnedAnchor = true) const {
        return removal::SafeRemover{anchor(), ::getuid(), requiresOwnedAnchor};
    }

    // Every canary is there, unchanged, and nothing was added or taken away.
    void expectCanariesIntact() const {
        EXPECT_EQ(testsupport::listNames(outside()).size(), canaries_.size());
        for (const auto& [name, content] : canaries_) {
            EXPECT_EQ(testsupport::readFile(outside() + "/" + name), content) << name;
        }
    }

    testsupport::TempDir temp_;
    std::map<std::string, std::string> canaries_;
};

// Changes the owner of a path, or skips the test where that is not allowed
// (tests run as root in CI; a developer's account may not chown).
#define CHOWN_OR_SKIP(path, uid)                                                \
    do {                                                                        \
        if (::lchown((path).c_str(), (uid), static_cast<gid_t>(-1)) != 0) {     \
            GTEST_SKIP() << "cannot change owners here (not root): " << (path); \
        }                                                                       \
    } while (false)

inline constexpr uid_t kOtherUser = 54321;
