#include <sys/stat.h>
#include <unistd.h>

#include "PreferencesFixture.h"
#include "platform/linux/FilePreferencesAccess.h"

namespace {

using platform::FilePreferencesAccess;
using platform::PreferencesHost;
using testsupport::FilePreferencesAccessTest;
using testsupport::kDomain;
using testsupport::kHostID;
using testsupport::readFile;
using testsupport::sameFileAndTime;
using testsupport::statOf;
using testsupport::writeFile;

TEST_F(FilePreferencesAccessTest, NoFilesHoldNoValues) {
    EXPECT_FALSE(store.hasValues(kDomain));
    store.removeAll(kDomain);
    EXPECT_TRUE(testsupport::listNames(preferences) == std::vector<std::string>{"ByHost"});
}

TEST_F(FilePreferencesAccessTest, KeysUnderAnyHostGiveValues) {
    plant(anyHostFile, {"Volume"});

    EXPECT_TRUE(store.hasValues(kDomain));
    EXPECT_EQ(store.keys(kDomain, PreferencesHost::anyHost), std::vector<std::string>{"Volume"});
}

TEST_F(FilePreferencesAccessTest, KeysOnlyUnderCurrentHostGiveValues) {
    plant(currentHostFile, {"DisplayScale"}, footprint::PlistFormat::binary);

    EXPECT_TRUE(store.hasValues(kDomain));
    EXPECT_TRUE(store.keys(kDomain, PreferencesHost::anyHost).empty());
}

TEST_F(FilePreferencesAccessTest, RemoveAllLeavesNoValuesOnEitherHost) {
    plant(anyHostFile, {"Volume", "SubtitleLanguage"});
    plant(currentHostFile, {"DisplayScale"}, footprint::PlistFormat::binary);

    store.removeAll(kDomain);

    EXPECT_FALSE(store.hasValues(kDomain));
    EXPECT_TRUE(store.keys(kDomain, PreferencesHost::anyHost).empty());
    EXPECT_TRUE(store.keys(kDomain, PreferencesHost::currentHost).empty());
    // No key is left, so neither file is.
    EXPECT_FALSE(testsupport::exists(anyHostFile));
    EXPECT_FALSE(testsupport::exists(currentHostFile));
}

TEST_F(FilePreferencesAccessTest, RemoveAllAfterOnlyCurrentHostHadKeysLeavesNoValues) {
    plant(currentHostFile, {"DisplayScale", "AudioOutputDevice"});

    store.removeAll(kDomain);

    EXPECT_FALSE(store.hasValues(kDomain));
    EXPECT_FALSE(testsupport::exists(currentHostFile));
}

TEST_F(FilePreferencesAccessTest, NoHostsMeansNoValuesAndNothingRemoved) {
    plant(anyHostFile, {"Volume"});
    plant(currentHostFile, {"DisplayScale"});
    const struct stat anyBefore = statOf(anyHostFile);
    const struct stat currentBefore = statOf(currentHostFile);
    const FilePreferencesAccess noHosts(home, {}, kHostID, ::getuid());

    EXPECT_FALSE(noHosts.hasValues(kDomain));
    noHosts.removeAll(kDomain);

    EXPECT_TRUE(sameFileAndTime(statOf(anyHostFile), anyBefore));
    EXPECT_TRUE(sameFileAndTime(statOf(currentHostFile), currentBefore));
}

TEST_F(FilePreferencesAccessTest, OnlyTheListedHostsAreConsulted) {
    plant(anyHostFile, {"Volume"});
    plant(currentHostFile, {"DisplayScale"});
    const FilePreferencesAccess currentOnly(home, {PreferencesHost::currentHost}, kHostID,
                                            ::getuid());

    currentOnly.removeAll(kDomain);

    EXPECT_EQ(keysIn(anyHostFile), std::vector<std::string>{"Volume"});
    EXPECT_FALSE(testsupport::exists(currentHostFile));
    EXPECT_FALSE(currentOnly.hasValues(kDomain));
    EXPECT_TRUE(store.hasValues(kDomain));
}

TEST_F(FilePreferencesAccessTest, MalformedFileHoldsNoKeysAndIsLeftUntouched) {
    const std::string garbage = "<?xml version=\"1.0\"?><plist><dict><key>Volume</key>";
    writeFile(anyHostFile, garbage);
    const struct stat before = statOf(anyHostFile);

    EXPECT_FALSE(store.hasValues(kDomain));
    store.removeAll(kDomain);

    EXPECT_EQ(readFile(anyHostFile), garbage);
    EXPECT_TRUE(sameFileAndTime(statOf(anyHostFile), before));
}

TEST_F(FilePreferencesAccessTest, FileThatIsNotADictionaryHoldsNoKeysAndIsLeftUntouched) {
    const std::string bytes = footprint::serialize(footprint::array({plist_new_string("Volume")}),
                                                   footprint::PlistFormat::binary);
    writeFile(currentHostFile, bytes);
    const struct stat before = statOf(currentHostFile);

    EXPECT_FALSE(store.hasValues(kDomain));
    store.removeAll(kDomain);

    EXPECT_EQ(readFile(currentHostFile), bytes);
    EXPECT_TRUE(sameFileAndTime(statOf(currentHostFile), before));
}

TEST_F(FilePreferencesAccessTest, FifoInPlaceOfTheFileHoldsNoKeysAndDoesNotBlock) {
    ASSERT_EQ(::mkfifo(anyHostFile.c_str(), 0600), 0);

    EXPECT_FALSE(store.hasValues(kDomain));
    store.removeAll(kDomain);

    EXPECT_TRUE(S_ISFIFO(statOf(anyHostFile).st_mode));
}

TEST_F(FilePreferencesAccessTest, XmlFileStaysXmlWhenSomeKeysAreRemoved) {
    plant(anyHostFile, {"Volume", "SubtitleLanguage", "ShowPlaylist"});

    store.removeKeys(kDomain, PreferencesHost::anyHost, {"SubtitleLanguage"});

    const std::string bytes = readFile(anyHostFile);
    EXPECT_TRUE(bytes.starts_with("<?xml")) << bytes.substr(0, 16);
    EXPECT_EQ(keysIn(anyHostFile), (std::vector<std::string>{"Volume", "ShowPlaylist"}));
    EXPECT_EQ(target::PropertyList::parse(bytes)->stringValue("Volume"), "value of Volume");
}

TEST_F(FilePreferencesAccessTest, BinaryFileStaysBinaryWhenSomeKeysAreRemoved) {
    plant(currentHostFile, {"DisplayScale", "AudioOutputDevice"}, footprint::PlistFormat::binary);

    store.removeKeys(kDomain, PreferencesHost::currentHost, {"DisplayScale", "NotThere"});

    const std::string bytes = readFile(currentHostFile);
    EXPECT_TRUE(bytes.starts_with("bplist00"));
    EXPECT_EQ(keysIn(currentHostFile), std::vector<std::string>{"AudioOutputDevice"});
}

TEST_F(FilePreferencesAccessTest, RemovingKeysThatAreNotThereWritesNothing) {
    plant(anyHostFile, {"Volume"});
    const struct stat before = statOf(anyHostFile);

    store.removeKeys(kDomain, PreferencesHost::anyHost, {"SubtitleLanguage"});

    EXPECT_TRUE(sameFileAndTime(statOf(anyHostFile), before));
}

// The old file is replaced by a rename, never written into: a second name for
// the old file (a hard link) still shows the old bytes afterwards.
TEST_F(FilePreferencesAccessTest, RewriteReplacesTheFileInsteadOfWritingIntoIt) {
    plant(anyHostFile, {"Volume", "SubtitleLanguage"});
    const std::string oldBytes = readFile(anyHostFile);
    const std::string secondName = temp / "old-name";
    ASSERT_EQ(::link(anyHostFile.c_str(), secondName.c_str()), 0);

    store.removeKeys(kDomain, PreferencesHost::anyHost, {"SubtitleLanguage"});

    EXPECT_EQ(readFile(secondName), oldBytes);
    EXPECT_NE(statOf(anyHostFile).st_ino, statOf(secondName).st_ino);
    EXPECT_EQ(keysIn(anyHostFile), std::vector<std::string>{"Volume"});
    EXPECT_EQ(testsupport::listNames(preferences),
              (std::vector<std::string>{"ByHost", std::string(kDomain) + ".plist"}));
}

TEST_F(FilePreferencesAccessTest, RewriteKeepsTheFilePermissions) {
    plant(anyHostFile, {"Volume", "SubtitleLanguage"});
    ASSERT_EQ(::chmod(anyHostFile.c_str(), 0640), 0);

    store.removeKeys(kDomain, PreferencesHost::anyHost, {"Volume"});

    EXPECT_EQ(statOf(anyHostFile).st_mode & 07777, 0640u);
}

TEST_F(FilePreferencesAccessTest, InvalidHostIDMeansTheCurrentHostHoldsNothing) {
    plant(currentHostFile, {"DisplayScale"});
    for (const std::string& hostID : {std::string(), std::string(".."), std::string("a/b")}) {
        const FilePreferencesAccess odd(home, {PreferencesHost::currentHost}, hostID, ::getuid());
        EXPECT_FALSE(odd.hasValues(kDomain)) << "host id \"" << hostID << "\"";
        odd.removeAll(kDomain);
    }
    EXPECT_EQ(keysIn(currentHostFile), std::vector<std::string>{"DisplayScale"});
}

TEST_F(FilePreferencesAccessTest, DefaultStoreUsesBothHostsAndThisMachinesID) {
    const FilePreferencesAccess standard(home);
    const std::string machineID = FilePreferencesAccess::machineID();

    EXPECT_EQ(standard.hosts, (std::vector<PreferencesHost>{PreferencesHost::anyHost,
                                                            PreferencesHost::currentHost}));
    EXPECT_EQ(standard.hostID, machineID);
    EXPECT_EQ(standard.userID, ::getuid());
    if (testsupport::exists("/etc/machine-id")) {
        std::string expected = readFile("/etc/machine-id");
        while (!expected.empty() && expected.back() == '\n') {
            expected.pop_back();
        }
        EXPECT_EQ(machineID, expected);
    }
}

TEST_F(FilePreferencesAccessTest, DomainThatIsNotAFileNameStopsTheProcess) {
    EXPECT_DEATH((void)store.hasValues("../io.tavio.Tavio"), "precondition failed");
    EXPECT_DEATH(store.removeAll("io/tavio"), "precondition failed");
    EXPECT_DEATH((void)store.hasValues(""), "precondition failed");
}

}  // namespace
