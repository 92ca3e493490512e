#include <sys/mount.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>

#include "ChildProcess.h"
#include "RemovalFixture.h"

using removal::SafeRemover;
using namespace testsupport;

namespace {

// Each test mounts inside a child that has its own user and mount namespace
// (like `unshare -Urm`), so the mounts vanish with it. The child answers with
// the outcome's description; "skip:" means namespaces are not available.
class VolumeTest : public RemovalTest {
  protected:
    std::string inNamespace(const std::function<std::string()>& body) {
        const auto answer = runInChild([&]() -> std::string {
            const std::string problem = enterPrivateMountNamespace();
            return problem.empty() ? body() : "skip:" + problem;
        });
        return answer.value_or("child died");
    }
};

#define SKIP_WITHOUT_NAMESPACES(answer)         \
    do {                                        \
        if ((answer).rfind("skip:", 0) == 0) {  \
            GTEST_SKIP() << (answer).substr(5); \
        }                                       \
    } while (false)

std::string mountOrWhy(const char* source,
                       const std::string& target,
                       const char* type,
                       unsigned long flags) {
    if (::mount(source, target.c_str(), type, flags, nullptr) != 0) {
        return std::string("mount failed: ") + std::strerror(errno);
    }
    return {};
}

TEST_F(VolumeTest, AnotherFileSystemInsideTheTreeIsNotEntered) {
    makeDirectories(at("item/mnt"));
    makeDirectories(at("item/sub"));
    writeFile(at("item/sibling"), "s");
    writeFile(at("item/sub/file"), "f");
    const std::string anchorPath = anchor();
    const std::string mnt = at("item/mnt");
    const std::string answer = inNamespace([&] {
        if (auto why = mountOrWhy("tmpfs", mnt, "tmpfs", 0); !why.empty()) {
            return why;
        }
        writeFile(mnt + "/inside", "on the other volume");
        const auto outcome = SafeRemover{anchorPath, ::getuid(), true}.remove({"item"});
        return describe(outcome) + "\n" + readFile(mnt + "/inside");
    });
    SKIP_WITHOUT_NAMESPACES(answer);
    EXPECT_EQ(answer, "failed[" + mnt + " crossesVolume]\non the other volume");
    EXPECT_EQ(listNames(at("item")), std::vector<std::string>{"mnt"});
    EXPECT_TRUE(isDirectory(mnt));
}

TEST_F(VolumeTest, BindMountOfTheSameFileSystemInsideTheTreeIsNotEntered) {
    makeDirectories(at("item/bound"));
    writeFile(at("item/sibling"), "s");
    const std::string victim = temp_ / "victim";
    makeDirectories(victim + "/documents");
    writeFile(victim + "/documents/thesis", "years of work");
    const std::string anchorPath = anchor();
    const std::string bound = at("item/bound");
    const std::string answer = inNamespace([&] {
        if (auto why = mountOrWhy(victim.c_str(), bound, nullptr, MS_BIND); !why.empty()) {
            return why;
        }
        return describe(SafeRemover{anchorPath, ::getuid(), true}.remove({"item"}));
    });
    SKIP_WITHOUT_NAMESPACES(answer);
    EXPECT_EQ(answer, "failed[" + bound + " crossesVolume]");
    EXPECT_EQ(readFile(victim + "/documents/thesis"), "years of work");
    EXPECT_EQ(listNames(at("item")), std::vector<std::string>{"bound"});
}

TEST_F(VolumeTest, ItemThatIsItselfABindMountIsNotEntered) {
    makeDirectories(at("item"));
    const std::string victim = temp_ / "victim";
    makeDirectories(victim);
    writeFile(victim + "/keep", "keep");
    const std::string anchorPath = anchor();
    const std::string item = at("item");
    const std::string answer = inNamespace([&] {
        if (auto why = mountOrWhy(victim.c_str(), item, nullptr, MS_BIND); !why.empty()) {
            return why;
        }
        return describe(SafeRemover{anchorPath, ::getuid(), true}.remove({"item"}));
    });
    SKIP_WITHOUT_NAMESPACES(answer);
    EXPECT_EQ(answer, "failed[" + item + " crossesVolume]");
    EXPECT_EQ(readFile(victim + "/keep"), "keep");
}

TEST_F(VolumeTest, TreeOnAVolumeWhoseRootIsTheAnchorIsRemoved) {
    const std::string anchorPath = anchor();
    const std::string answer = inNamespace([&] {
        if (auto why = mountOrWhy("tmpfs", anchorPath, "tmpfs", 0); !why.empty()) {
            return why;
        }
        makeDirectories(anchorPath + "/item/a/b");
        writeFile(anchorPath + "/item/a/b/file", "x");
        const auto outcome = SafeRemover{anchorPath, ::getuid(), true}.remove({"item"});
        return describe(outcome) + (exists(anchorPath + "/item") ? " but still there" : "");
    });
    SKIP_WITHOUT_NAMESPACES(answer);
    EXPECT_EQ(answer, "removed");
}

TEST_F(VolumeTest, ReadOnlyFileSystemIsPermissionDenied) {
    const std::string anchorPath = anchor();
    const std::string answer = inNamespace([&] {
        if (auto why = mountOrWhy("tmpfs", anchorPath, "tmpfs", 0); !why.empty()) {
            return why;
        }
        makeDirectories(anchorPath + "/item");
        writeFile(anchorPath + "/item/entry", "x");
        writeFile(anchorPath + "/file", "y");
        if (auto why = mountOrWhy(nullptr, anchorPath, nullptr, MS_REMOUNT | MS_RDONLY | MS_BIND);
            !why.empty()) {
            return why;
        }
        const SafeRemover remover{anchorPath, ::getuid(), true};
        return describe(remover.remove({"item"})) + "\n" + describe(remover.remove({"file"})) +
               "\n" + readFile(anchorPath + "/item/entry") + readFile(anchorPath + "/file");
    });
    SKIP_WITHOUT_NAMESPACES(answer);
    EXPECT_EQ(answer, "failed[" + at("item/entry") + " permissionDenied]\nfailed[" + at("file") +
                          " permissionDenied]\nxy");
}

// The user's videos bound inside the Tavio cache (the same file system, so
// the same device): when the kernel cannot say which mount the bound folder
// lies on, the removal must not guess "the same one" and walk in.
class VolumeCheckFailureTest : public VolumeTest, public ::testing::WithParamInterface<int> {};

TEST_P(VolumeCheckFailureTest, BindMountWhoseMountCannotBeToldIsNotEntered) {
    const int error = GetParam();
    makeDirectories(at("cache/bound"));
    makeDirectories(at("cache/sub"));
    writeFile(at("cache/sibling"), "s");
    writeFile(at("cache/sub/file"), "f");
    const std::string movies = temp_ / "Movies";
    makeDirectories(movies + "/holiday");
    writeFile(movies + "/film.mkv", "the user's film");
    writeFile(movies + "/holiday/beach.mp4", "the user's video");
    struct stat moviesStat {};
    ASSERT_EQ(::stat(movies.c_str(), &moviesStat), 0);
    hooks::failStatx = [&](int fd, const std::string&) {
        struct stat st {};
        const bool isMovies = ::fstat(fd, &st) == 0 && st.st_ino == moviesStat.st_ino &&
                              st.st_dev == moviesStat.st_dev;
        return isMovies ? error : 0;
    };
    const std::string anchorPath = anchor();
    const std::string bound = at("cache/bound");
    const std::string answer = inNamespace([&] {
        if (auto why = mountOrWhy(movies.c_str(), bound, nullptr, MS_BIND); !why.empty()) {
            return why;
        }
        return describe(SafeRemover{anchorPath, ::getuid(), true}.remove({"cache"}));
    });
    SKIP_WITHOUT_NAMESPACES(answer);
    EXPECT_EQ(answer, "failed[" + bound + " " + describe(removal::reasonForErrno(error)) + "]");
    EXPECT_EQ(readFile(movies + "/film.mkv"), "the user's film");
    EXPECT_EQ(readFile(movies + "/holiday/beach.mp4"), "the user's video");
    // Everything else of the cache went; the folder that was not entered stays.
    EXPECT_EQ(listNames(at("cache")), std::vector<std::string>{"bound"});
    expectCanariesIntact();
}

// Without the anchor's mount no folder below it can be compared, so the item
// is not entered at all, and says why.
TEST_P(VolumeCheckFailureTest, AnchorWhoseMountCannotBeToldKeepsTheItemWhole) {
    const int error = GetParam();
    makeDirectories(at("cache/bound"));
    writeFile(at("cache/sibling"), "s");
    const std::string movies = temp_ / "Movies";
    makeDirectories(movies);
    writeFile(movies + "/film.mkv", "the user's film");
    struct stat anchorStat {};
    ASSERT_EQ(::stat(anchor().c_str(), &anchorStat), 0);
    hooks::failStatx = [&](int fd, const std::string&) {
        struct stat st {};
        const bool isAnchor = ::fstat(fd, &st) == 0 && st.st_ino == anchorStat.st_ino &&
                              st.st_dev == anchorStat.st_dev;
        return isAnchor ? error : 0;
    };
    const std::string anchorPath = anchor();
    const std::string bound = at("cache/bound");
    const std::string answer = inNamespace([&] {
        if (auto why = mountOrWhy(movies.c_str(), bound, nullptr, MS_BIND); !why.empty()) {
            return why;
        }
        const SafeRemover remover{anchorPath, ::getuid(), true};
        // A probe needs no volume: it still answers.
        return describe(remover.presence({"cache"})) + "\n" + describe(remover.remove({"cache"}));
    });
    SKIP_WITHOUT_NAMESPACES(answer);
    EXPECT_EQ(answer, "present\nfailed[" + at("cache") + " " +
                          describe(removal::reasonForErrno(error)) + "]");
    EXPECT_EQ(readFile(movies + "/film.mkv"), "the user's film");
    EXPECT_EQ(readFile(at("cache/sibling")), "s");
}

INSTANTIATE_TEST_SUITE_P(Errors,
                         VolumeCheckFailureTest,
                         ::testing::Values(EACCES, EIO, ENOMEM),
                         [](const ::testing::TestParamInfo<int>& info) {
                             return std::string(strerrorname_np(info.param));
                         });

}  // namespace
