#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QDir>

#include "ProgramLauncher.h"
#include "TempDir.h"
#include "app/SingleInstance.h"

// One copy of the program per user: the lock that keeps a second start out,
// where it lies, that no other user can take it first, and that its holder
// leaves none behind. (The program's own tests start the real program with
// it: ProgramTests.cpp.)

namespace {

using app::SingleInstance;
using programtest::ForeignLock;
using programtest::lockName;
using testsupport::TempDir;

std::string lockName() {
    return lockName(::getuid());
}

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

}  // namespace
