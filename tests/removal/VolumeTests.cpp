#include <sys/mount.h>

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

#define SKIP_WITHOUT_NAMESPACES(answer)                        \
    do {                                                       \
        if ((answer).rfind("skip:", 0) == 0) {                 \
            GTEST_SKIP() << (answer).substr(5);                \
        }                                                      \
    } while (false)

std::string mountOrWhy(const char* source, const std::string& target, const char* type,
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

}  // namespace
