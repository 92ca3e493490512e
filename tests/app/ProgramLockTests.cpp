#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QDir>

#include "ProgramLauncher.h"
#include "TempDir.h"
#include "app/SingleInstance.h"

// One copy of the program per user: the lock that keeps a second start out,
// where it lies, that no other user can take it first, and that a normal end
// leaves none behind.

namespace {

using app::SingleInstance;
using programtest::Launch;
using testsupport::TempDir;

constexpr uid_t kAnotherUser = 54321;

// The names in `folder` that are lock files. (Without a runtime folder, Qt
// makes one of its own in the temporary folder, "runtime-<user>", which is
// not ours to judge here.)
std::vector<std::string> locksIn(const std::string& folder) {
    std::vector<std::string> locks;
    for (const std::string& name : testsupport::listNames(folder)) {
        if (name.ends_with(".lock")) {
            locks.push_back(name);
        }
    }
    return locks;
}

// The lock file's name for the user of the test process.
std::string lockName(uid_t user = ::getuid()) {
    return "io.tavio.Tavio.Uninstaller-" + std::to_string(user) + ".lock";
}

// A file of another user at `path`, which anyone may open, locked by this
// process for as long as the object lives: what a hostile user could leave
// in a shared temporary folder.
class ForeignLock {
  public:
    explicit ForeignLock(const std::string& path) {
        testsupport::writeFile(path, "");
        if (::chown(path.c_str(), kAnotherUser, kAnotherUser) != 0 ||
            ::chmod(path.c_str(), 0666) != 0) {
            throw std::runtime_error("cannot give " + path + " to another user");
        }
        fd_ = ::open(path.c_str(), O_RDWR | O_CLOEXEC);
        if (fd_ < 0 || ::flock(fd_, LOCK_EX | LOCK_NB) != 0) {
            throw std::runtime_error("cannot lock " + path);
        }
    }
    ~ForeignLock() { ::close(fd_); }
    ForeignLock(const ForeignLock&) = delete;
    ForeignLock& operator=(const ForeignLock&) = delete;

  private:
    int fd_ = -1;
};

class SingleInstanceTest : public ::testing::Test {
  protected:
    QString folder(const std::string& name) {
        testsupport::makeDirectories(temp_ / name);
        return QString::fromStdString(temp_ / name);
    }

    TempDir temp_;
};

TEST_F(SingleInstanceTest, ASecondStartFindsTheLockHeldByTheFirst) {
    SingleInstance first({folder("runtime")});
    ASSERT_EQ(first.acquire(), SingleInstance::Outcome::held);
    SingleInstance second({folder("runtime")});
    EXPECT_EQ(second.acquire(), SingleInstance::Outcome::heldByAnotherCopy);
    EXPECT_EQ(first.path().toStdString(), temp_ / ("runtime/" + lockName()));
}

TEST_F(SingleInstanceTest, TheLockFileIsGoneWhenItsHolderEndsAndTheNextStartTakesANewOne) {
    {
        SingleInstance first({folder("runtime")});
        ASSERT_EQ(first.acquire(), SingleInstance::Outcome::held);
        EXPECT_TRUE(testsupport::exists(temp_ / ("runtime/" + lockName())));
    }
    EXPECT_EQ(testsupport::listNames(temp_ / "runtime"), std::vector<std::string>{});
    SingleInstance next({folder("runtime")});
    EXPECT_EQ(next.acquire(), SingleInstance::Outcome::held);
}

TEST_F(SingleInstanceTest, AFileOfAnotherUserIsPassedOverForTheNextFolder) {
    if (::getuid() != 0) {
        GTEST_SKIP() << "needs root to make a file of another user";
    }
    const QString shared = folder("tmp");
    const ForeignLock foreign(temp_ / ("tmp/" + lockName()));
    SingleInstance instance({shared, folder("home")});
    EXPECT_EQ(instance.acquire(), SingleInstance::Outcome::held);
    EXPECT_EQ(instance.path().toStdString(), temp_ / ("home/" + lockName()));
}

TEST_F(SingleInstanceTest, ALinkAtTheLockPlaceIsNeverFollowed) {
    testsupport::writeFile(temp_ / "target", "mine");
    testsupport::makeDirectories(temp_ / "tmp");
    testsupport::makeLink(temp_ / "target", temp_ / ("tmp/" + lockName()));
    SingleInstance instance({folder("tmp"), folder("home")});
    EXPECT_EQ(instance.acquire(), SingleInstance::Outcome::held);
    EXPECT_EQ(instance.path().toStdString(), temp_ / ("home/" + lockName()));
    EXPECT_EQ(testsupport::readFile(temp_ / "target"), "mine");
}

TEST_F(SingleInstanceTest, WithNoFolderThatWillDoItRunsUnguardedAndSaysWhy) {
    SingleInstance instance({QString::fromStdString(temp_ / "missing")});
    EXPECT_EQ(instance.acquire(), SingleInstance::Outcome::unguarded);
    EXPECT_NE(instance.problem().toStdString().find(temp_ / "missing"), std::string::npos);
}

// The runtime folder comes first only when it is the user's alone.
TEST_F(SingleInstanceTest, ARuntimeFolderOthersMayEnterIsNotUsed) {
    testsupport::makeDirectories(temp_ / "private", 0700);
    testsupport::makeDirectories(temp_ / "open", 0755);
    const QByteArray saved = qgetenv("XDG_RUNTIME_DIR");
    qputenv("XDG_RUNTIME_DIR", QByteArray::fromStdString(temp_ / "private"));
    const QStringList privateFirst = SingleInstance::defaultFolders();
    qputenv("XDG_RUNTIME_DIR", QByteArray::fromStdString(temp_ / "open"));
    const QStringList openFirst = SingleInstance::defaultFolders();
    qputenv("XDG_RUNTIME_DIR", saved);

    EXPECT_EQ(privateFirst, (QStringList{QString::fromStdString(temp_ / "private"),
                                         QDir::tempPath(), QDir::homePath()}));
    EXPECT_EQ(openFirst, (QStringList{QDir::tempPath(), QDir::homePath()}));
}

// The real program, in namespaces of its own (see ProgramLauncher.h).
class ProgramLockTest : public ::testing::Test {
  protected:
    void SetUp() override {
        testsupport::makeDirectories(temp_ / "home");
        testsupport::makeDirectories(temp_ / "tmp");
        testsupport::makeDirectories(temp_ / "scratch");
        // A temporary folder as every system has it: anyone may create in it.
        ASSERT_EQ(::chmod((temp_ / "tmp").c_str(), 01777), 0);
    }

    Launch launch(bool runtimeFolder) const {
        Launch how;
        how.executable = UNINSTALLER_PATH;
        how.home = temp_ / "home";
        how.temporary = temp_ / "tmp";
        how.scratch = temp_ / "scratch";
        how.runtimeFolder = runtimeFolder;
        return how;
    }

    // Runs the program; "skip" where namespaces are not available.
    static std::string run(const Launch& how) {
        const std::string ended = programtest::runProgram(how);
        return ended.rfind("skip: ", 0) == 0 ? "skip" : ended;
    }

    TempDir temp_;
};

TEST_F(ProgramLockTest, LeavesNoLockBehindInTheRuntimeFolder) {
    const std::string ended = run(launch(/*runtimeFolder=*/true));
    if (ended == "skip") {
        GTEST_SKIP() << "user and mount namespaces are not available here";
    }
    EXPECT_EQ(ended, "exit 0");
    EXPECT_EQ(testsupport::listNames(temp_ / "scratch/runtime"), std::vector<std::string>{});
}

TEST_F(ProgramLockTest, LeavesNoLockBehindWithoutARuntimeFolder) {
    const std::string ended = run(launch(/*runtimeFolder=*/false));
    if (ended == "skip") {
        GTEST_SKIP() << "user and mount namespaces are not available here";
    }
    EXPECT_EQ(ended, "exit 0");
    EXPECT_EQ(locksIn(temp_ / "tmp"), std::vector<std::string>{});
    EXPECT_EQ(testsupport::listNames(temp_ / "home"), std::vector<std::string>{});
}

// Another user got there first and holds a lock on a file of the lock's
// name in the temporary folder: the program still starts (its lock goes to
// the home folder instead), and leaves the other file as it found it. The
// program runs as root of its own user namespace, named by the id 0 there.
TEST_F(ProgramLockTest, AnotherUsersFileAtTheLockPlaceDoesNotKeepItFromStarting) {
    if (::getuid() != 0) {
        GTEST_SKIP() << "needs root to make a file of another user";
    }
    const std::string foreign = temp_ / ("tmp/" + lockName(0));
    const ForeignLock held(foreign);
    const std::string ended = run(launch(/*runtimeFolder=*/false));
    if (ended == "skip") {
        GTEST_SKIP() << "user and mount namespaces are not available here";
    }
    EXPECT_EQ(ended, "exit 0");
    EXPECT_EQ(locksIn(temp_ / "tmp"), std::vector<std::string>{lockName(0)});
    struct stat st {};
    ASSERT_EQ(::stat(foreign.c_str(), &st), 0);
    EXPECT_EQ(st.st_uid, kAnotherUser);
    EXPECT_EQ(st.st_size, 0);
    EXPECT_EQ(testsupport::listNames(temp_ / "home"), std::vector<std::string>{});
}

}  // namespace
