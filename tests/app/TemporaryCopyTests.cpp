#include <gtest/gtest.h>

#include <QString>

#include "TempDir.h"
#include "app/TemporaryCopy.h"

using app::bundlePathForExecutable;
using app::temporaryCopyFolder;
using testsupport::makeDirectories;
using testsupport::makeLink;
using testsupport::TempDir;

namespace {

QString q(const std::string& path) {
    return QString::fromStdString(path);
}

TEST(BundlePathTest, IsTheAppFolderAroundContentsMacOS) {
    EXPECT_EQ(bundlePathForExecutable("/x/Uninstall Tavio.app/Contents/MacOS/Uninstall Tavio"),
              QStringLiteral("/x/Uninstall Tavio.app"));
}

TEST(BundlePathTest, IsTheExecutablesFolderOutsideABundle) {
    EXPECT_EQ(bundlePathForExecutable("/x/bin/uninstaller"), QStringLiteral("/x/bin"));
    EXPECT_EQ(bundlePathForExecutable("/x/Other/Contents/MacOS/tool"),
              QStringLiteral("/x/Other/Contents/MacOS"));
    EXPECT_EQ(bundlePathForExecutable("/x/A.app/Resources/MacOS/tool"),
              QStringLiteral("/x/A.app/Resources/MacOS"));
    EXPECT_EQ(bundlePathForExecutable(""), QString());
}

TEST(TemporaryCopyTest, TheFolderDirectlyInTheTemporaryFolderWithThePrefixIsTheCopy) {
    const TempDir temp;
    const std::string folder = temp / "io.tavio.Tavio.uninstaller-Ab12";
    makeDirectories(folder + "/Uninstall Tavio.app");
    EXPECT_EQ(temporaryCopyFolder(q(folder + "/Uninstall Tavio.app"), q(temp.path())), q(folder));
}

TEST(TemporaryCopyTest, AFolderOneLevelDeeperIsNot) {
    const TempDir temp;
    const std::string folder = temp / "outer/io.tavio.Tavio.uninstaller-Ab12";
    makeDirectories(folder + "/Uninstall Tavio.app");
    EXPECT_EQ(temporaryCopyFolder(q(folder + "/Uninstall Tavio.app"), q(temp.path())), QString());
}

TEST(TemporaryCopyTest, AFolderWithoutThePrefixIsNot) {
    const TempDir temp;
    for (const char* name : {"uninstaller-Ab12", "io.tavio.Tavio.uninstaller", "io.tavio.Tavio"}) {
        const std::string folder = temp / name;
        makeDirectories(folder + "/Uninstall Tavio.app");
        EXPECT_EQ(temporaryCopyFolder(q(folder + "/Uninstall Tavio.app"), q(temp.path())),
                  QString())
            << name;
    }
}

TEST(TemporaryCopyTest, ABundleDirectlyInTheTemporaryFolderNeverNamesThatFolder) {
    const TempDir temp;
    makeDirectories(temp / "Uninstall Tavio.app");
    EXPECT_EQ(temporaryCopyFolder(q(temp / "Uninstall Tavio.app"), q(temp.path())), QString());
}

TEST(TemporaryCopyTest, LinksAreResolvedOnBothSides) {
    const TempDir temp;
    const std::string folder = temp / "real/io.tavio.Tavio.uninstaller-Ab12";
    makeDirectories(folder + "/Uninstall Tavio.app");
    makeLink(temp / "real", temp / "tmp-link");
    makeLink(folder, temp / "copy-link");
    // The temporary folder is named through a link, the bundle directly.
    EXPECT_EQ(temporaryCopyFolder(q(folder + "/Uninstall Tavio.app"), q(temp / "tmp-link")),
              q(folder));
    // A linked folder in the temporary folder stands for where it leads.
    EXPECT_EQ(temporaryCopyFolder(q(temp / "copy-link/Uninstall Tavio.app"), q(temp.path())),
              QString());
    EXPECT_EQ(temporaryCopyFolder(q(temp / "copy-link/Uninstall Tavio.app"), q(temp / "real")),
              q(folder));
}

TEST(TemporaryCopyTest, MissingFoldersAreNothing) {
    const TempDir temp;
    EXPECT_EQ(temporaryCopyFolder(q(temp / "io.tavio.Tavio.uninstaller-x/A.app"), q(temp.path())),
              QString());
    EXPECT_EQ(temporaryCopyFolder(QString(), q(temp.path())), QString());
    EXPECT_EQ(temporaryCopyFolder(q(temp / "x/A.app"), QString()), QString());
}

TEST(TemporaryCopyTest, RemovalTakesTheWholeFolderAndNothingElse) {
    const TempDir temp;
    const std::string folder = temp / "io.tavio.Tavio.uninstaller-Ab12";
    makeDirectories(folder + "/Uninstall Tavio.app/Contents/MacOS");
    testsupport::writeFile(folder + "/Uninstall Tavio.app/Contents/Info.plist", "x");
    makeDirectories(temp / "outside");
    testsupport::writeFile(temp / "outside/keep", "x");
    makeLink(temp / "outside", folder + "/link-to-outside");

    app::removeTemporaryCopy(q(folder + "/Uninstall Tavio.app"), q(temp.path()));
    EXPECT_FALSE(testsupport::exists(folder));
    EXPECT_TRUE(testsupport::exists(temp / "outside/keep"));
}

}  // namespace
