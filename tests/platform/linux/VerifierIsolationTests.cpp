// The app check must never change a bundle, never open anything in it for
// writing, and never follow a link. These tests watch it from the outside:
// through inotify, which reports every open and every write-close, and on a
// bundle bound read-only into a private mount namespace.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/inotify.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <map>
#include <vector>

#include "AppBundleFixture.h"
#include "ChildProcess.h"
#include "base/UniqueFd.h"

namespace {

using Problem = target::AppVerificationProblem;

constexpr std::uint32_t kChanges = IN_CLOSE_WRITE | IN_MODIFY | IN_ATTRIB | IN_CREATE | IN_DELETE |
                                   IN_MOVED_FROM | IN_MOVED_TO | IN_DELETE_SELF | IN_MOVE_SELF;

// Collects inotify events for a set of watched paths.
class Watcher {
  public:
    Watcher() : fd_(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
        if (!fd_) {
            throw std::runtime_error("inotify_init1 failed");
        }
    }

    void watch(const std::string& path, std::uint32_t mask) {
        const int wd = ::inotify_add_watch(fd_.get(), path.c_str(), mask | IN_DONT_FOLLOW);
        if (wd < 0) {
            throw std::runtime_error("inotify_add_watch failed for " + path);
        }
        paths_[wd] = path;
    }

    // Every folder of a tree, not following links.
    void watchTree(const std::string& top, std::uint32_t mask) {
        watch(top, mask);
        for (const std::string& name : testsupport::listNames(top)) {
            if (testsupport::isDirectory(top + "/" + name)) {
                watchTree(top + "/" + name, mask);
            }
        }
    }

    // Forgets the events of the set-up (listing the tree opens its folders).
    void clear() { (void)events(); }

    // The events since the last call: the path and the event mask.
    std::vector<std::pair<std::string, std::uint32_t>> events() {
        std::vector<std::pair<std::string, std::uint32_t>> out;
        alignas(inotify_event) char buffer[64 * 1024];
        for (;;) {
            const ssize_t n = ::read(fd_.get(), buffer, sizeof buffer);
            if (n <= 0) {
                break;
            }
            for (char* at = buffer; at < buffer + n;) {
                const auto* event = reinterpret_cast<const inotify_event*>(at);
                const std::string name = event->len > 0 ? event->name : "";
                out.emplace_back(paths_[event->wd] + "/" + name, event->mask);
                at += sizeof(inotify_event) + event->len;
            }
        }
        return out;
    }

  private:
    base::UniqueFd fd_;
    std::map<int, std::string> paths_;
};

using VerifierIsolationTest = appbundle::AppBundleTest;

TEST_F(VerifierIsolationTest, TheCheckReadsTheBundleButChangesAndWritesNothing) {
    makeSealedBundle();
    Watcher watcher;
    watcher.watchTree(bundle(), kChanges | IN_CLOSE_NOWRITE);
    watcher.clear();
    ASSERT_EQ(verify(), std::nullopt);
    int reads = 0;
    for (const auto& [path, mask] : watcher.events()) {
        EXPECT_EQ(mask & kChanges, 0u) << path << " changed or was opened for writing";
        reads += (mask & IN_CLOSE_NOWRITE) != 0 ? 1 : 0;
    }
    EXPECT_GT(reads, 5);  // the watch saw the check at work
}

TEST_F(VerifierIsolationTest, ARefusedBundleIsNotChangedEither) {
    makeSealedBundle();
    testsupport::writeFile(at("Resources/extra"), "added");
    Watcher watcher;
    watcher.watchTree(bundle(), kChanges);
    watcher.clear();
    ASSERT_EQ(verify(), Problem::invalidSignature());
    EXPECT_TRUE(watcher.events().empty());
}

TEST_F(VerifierIsolationTest, TheCheckPassesOnABundleMountedReadOnly) {
    makeSealedBundle();
    const auto answer = testsupport::runInChild([this] {
        const std::string why = testsupport::enterPrivateMountNamespace();
        if (!why.empty()) {
            return "skip: " + why;
        }
        if (::mount(bundle().c_str(), bundle().c_str(), nullptr, MS_BIND | MS_REC, nullptr) != 0 ||
            ::mount(nullptr, bundle().c_str(), nullptr, MS_BIND | MS_REMOUNT | MS_RDONLY,
                    nullptr) != 0) {
            return std::string("skip: cannot bind the bundle read-only: ") + std::strerror(errno);
        }
        const base::UniqueFd probe(
            ::open(at("Resources/probe").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644));
        if (probe || errno != EROFS) {
            return std::string("the bundle is not read-only");
        }
        const auto problem = verify();
        return std::string(problem ? "refused: " + problem->explanation() : "valid");
    });
    ASSERT_TRUE(answer);
    if (answer->rfind("skip: ", 0) == 0) {
        GTEST_SKIP() << *answer;
    }
    EXPECT_EQ(answer, "valid");
}

TEST_F(VerifierIsolationTest, ALinkOutOfTheBundleIsNeverFollowed) {
    makeSealedBundle();
    const std::string canary = temp_ / "canary";
    testsupport::writeFile(canary, "outside the bundle");
    testsupport::makeLink("../../../canary", at("Resources/relative"));
    testsupport::makeLink(canary, at("Resources/absolute"));
    addToSeal("Resources/relative", "symlink", plist_new_string("../../../canary"));
    addToSeal("Resources/absolute", "symlink", plist_new_string(canary.c_str()));
    Watcher watcher;
    watcher.watch(canary, IN_OPEN | IN_ACCESS);
    watcher.clear();
    EXPECT_EQ(verify(), Problem::invalidSignature());
    EXPECT_TRUE(watcher.events().empty());
}

TEST_F(VerifierIsolationTest, ALinkToAFifoOutsideIsNeverOpened) {
    makeSealedBundle();
    ASSERT_EQ(::mkfifo((temp_ / "pipe").c_str(), 0644), 0);
    testsupport::makeLink("../../../pipe", at("Resources/pipe"));
    addToSeal("Resources/pipe", "symlink", plist_new_string("../../../pipe"));
    const auto answer = testsupport::runInChild([this] {
        ::alarm(5);
        return std::string(verify() == Problem::invalidSignature() ? "invalid" : "other");
    });
    EXPECT_EQ(answer, "invalid");
}

TEST_F(VerifierIsolationTest, ContentsLinkedToARealBundleIsNeverFollowed) {
    makeSealedBundle();
    const std::string fake = temp_ / "Fake.app";
    testsupport::makeDirectories(fake);
    testsupport::makeLink(contents(), fake + "/Contents");
    Watcher watcher;
    watcher.watchTree(contents(), IN_OPEN | IN_ACCESS);
    watcher.clear();
    EXPECT_EQ(verify(fake), Problem::notAnAppBundle());
    EXPECT_TRUE(watcher.events().empty());
}

TEST_F(VerifierIsolationTest, AnInfoPlistLinkedToAGoodOneIsNeverFollowed) {
    makeSealedBundle();
    const std::string elsewhere = temp_ / "Info.plist";
    ASSERT_EQ(::rename(at("Info.plist").c_str(), elsewhere.c_str()), 0);
    testsupport::makeLink(elsewhere, at("Info.plist"));
    Watcher watcher;
    watcher.watch(elsewhere, IN_OPEN | IN_ACCESS);
    watcher.clear();
    EXPECT_EQ(verify(), Problem::notAnAppBundle());
    EXPECT_TRUE(watcher.events().empty());
}

}  // namespace
