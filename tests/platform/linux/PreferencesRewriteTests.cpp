// A rewrite of a preferences file leaves nothing beside it, whether the file
// system makes files without a name or not, and a rewrite killed at any
// point leaves the old file whole and at most a temporary that a later run
// recognises and removes.
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <stddef.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>

#include <bit>
#include <csignal>
#include <cstring>
#include <functional>
#include <initializer_list>
#include <tuple>

#include "ChildProcess.h"
#include "DescriptorCheck.h"
#include "Faults.h"
#include "RewriteFixture.h"

namespace {

using platform::PreferencesHost;
using testsupport::isTemporaryOf;
using testsupport::kDomain;
using testsupport::readFile;
using testsupport::sameFileAndTime;
using testsupport::statOf;

// Whether the new file is made without a name, or (as on a file system that
// cannot do that) under its temporary name from the start.
enum class NewFile { unnamed, named };

std::string describe(NewFile newFile) {
    return newFile == NewFile::unnamed ? "Unnamed" : "Named";
}

bool installFilter(std::vector<sock_filter> program) {
    const sock_fprog filter{static_cast<unsigned short>(program.size()), program.data()};
    return ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
           ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) == 0;
}

// Kills this process with SIGKILL the moment it makes one of `calls`, before
// the call does anything: a crash at exactly that point.
bool killAtCalls(std::initializer_list<long> calls) {
    struct sigaction action {};
    action.sa_handler = [](int) { ::kill(::getpid(), SIGKILL); };
    if (::sigaction(SIGSYS, &action, nullptr) != 0) {
        return false;
    }
    std::vector<sock_filter> program{
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr))};
    for (const long call : calls) {
        program.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<__u32>(call), 0, 1));
        program.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_TRAP));
    }
    program.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
    return installFilter(std::move(program));
}

const std::initializer_list<long> kRenames = {
#ifdef __NR_rename
    __NR_rename,
#endif
#ifdef __NR_renameat
    __NR_renameat,
#endif
    __NR_renameat2};

const std::initializer_list<long> kLinks = {
#ifdef __NR_link
    __NR_link,
#endif
    __NR_linkat};

// Makes every linkat() that names a descriptor (AT_EMPTY_PATH) fail with
// `error`, as kernels do for a user without CAP_DAC_READ_SEARCH.
bool refuseLinkingDescriptors(int error) {
    static_assert(std::endian::native == std::endian::little, "reads the low half of flags");
    return installFilter({
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, __NR_linkat, 0, 3),
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, args) + 4 * sizeof(__u64)),
        BPF_JUMP(BPF_JMP | BPF_JSET | BPF_K, AT_EMPTY_PATH, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | static_cast<__u32>(error)),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    });
}

// Runs `body` in a forked child and says how the child ended: "killed by
// KILL", or "exited 0" when `body` returned.
std::string endOfChild(const std::function<void()>& body) {
    const pid_t pid = ::fork();
    if (pid == 0) {
        body();
        _exit(0);
    }
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    if (WIFSIGNALED(status)) {
        return std::string("killed by ") + sigabbrev_np(WTERMSIG(status));
    }
    return "exited " + std::to_string(WEXITSTATUS(status));
}

class RewriteTest : public testsupport::PreferencesRewriteTest {
  protected:
    // The fault that makes a rewrite of `path` on `host` take the named way:
    // the openat that makes the file without a name is refused as a file
    // system without them refuses it. That openat is the rewrite's last, found
    // by counting on a first rewrite of the file, which is then put back.
    std::optional<faults::Fault> unnamedRefused(NewFile newFile,
                                                PreferencesHost host,
                                                const std::string& path,
                                                const std::vector<std::string>& keys) {
        if (newFile == NewFile::unnamed) {
            return std::nullopt;
        }
        const std::string bytes = readFile(path);
        faults::arm(std::nullopt);
        store.removeKeys(kDomain, host, keys);
        const auto counts = faults::disarm();
        testsupport::writeFile(path, bytes);
        return faults::Fault{faults::Call::openat,
                             counts[static_cast<std::size_t>(faults::Call::openat)], EOPNOTSUPP};
    }

    // Removes `keys` on `host` with `fault` armed, and checks that a fault
    // made the rewrite take the named way: one openat more.
    void removeKeysWith(const std::optional<faults::Fault>& fault,
                        PreferencesHost host,
                        const std::vector<std::string>& keys) {
        faults::arm(fault);
        store.removeKeys(kDomain, host, keys);
        const auto counts = faults::disarm();
        if (fault) {
            EXPECT_TRUE(faults::fired());
            EXPECT_EQ(counts[static_cast<std::size_t>(faults::Call::openat)],
                      fault->occurrence + 1);
        }
    }
};

class RewriteEachWayTest
    : public RewriteTest,
      public ::testing::WithParamInterface<std::tuple<NewFile, footprint::PlistFormat>> {};

TEST_P(RewriteEachWayTest, LeavesOnlyTheFileWithTheKeptKeys) {
    const auto [newFile, format] = GetParam();
    const std::string header = format == footprint::PlistFormat::xml ? "<?xml" : "bplist00";
    plant(anyHostFile, {"Volume", "SubtitleLanguage", "ShowPlaylist"}, format);
    plant(currentHostFile, {"DisplayScale", "AudioOutputDevice"}, format);

    removeKeysWith(unnamedRefused(newFile, PreferencesHost::anyHost, anyHostFile, {"Volume"}),
                   PreferencesHost::anyHost, {"Volume"});
    removeKeysWith(
        unnamedRefused(newFile, PreferencesHost::currentHost, currentHostFile, {"DisplayScale"}),
        PreferencesHost::currentHost, {"DisplayScale"});

    EXPECT_EQ(testsupport::listNames(preferences),
              (std::vector<std::string>{"ByHost", anyHostName}));
    EXPECT_EQ(testsupport::listNames(byHost), std::vector<std::string>{currentHostName});
    EXPECT_EQ(keysIn(anyHostFile), (std::vector<std::string>{"SubtitleLanguage", "ShowPlaylist"}));
    EXPECT_EQ(keysIn(currentHostFile), std::vector<std::string>{"AudioOutputDevice"});
    EXPECT_TRUE(readFile(anyHostFile).starts_with(header));
    EXPECT_TRUE(readFile(currentHostFile).starts_with(header));
}

INSTANTIATE_TEST_SUITE_P(Ways,
                         RewriteEachWayTest,
                         ::testing::Combine(::testing::Values(NewFile::unnamed, NewFile::named),
                                            ::testing::Values(footprint::PlistFormat::xml,
                                                              footprint::PlistFormat::binary)),
                         [](const auto& info) {
                             return describe(std::get<0>(info.param)) +
                                    (std::get<1>(info.param) == footprint::PlistFormat::xml
                                         ? "Xml"
                                         : "Binary");
                         });

// Without the capability to name a descriptor, the new file is named through
// /proc/self/fd.
class DescriptorLinkRefusedTest : public RewriteTest, public ::testing::WithParamInterface<int> {};

TEST_P(DescriptorLinkRefusedTest, UnnamedFileIsNamedThroughProc) {
    plant(anyHostFile, {"Volume", "SubtitleLanguage"}, footprint::PlistFormat::binary);

    const auto answer = testsupport::runInChild([&]() -> std::string {
        if (!refuseLinkingDescriptors(GetParam())) {
            return "no filter";
        }
        const testsupport::TempDir probe;
        const int fd = ::open(probe.path().c_str(), O_TMPFILE | O_WRONLY | O_CLOEXEC, 0600);
        const std::string name = probe / "probe";
        const bool refused =
            ::linkat(fd, "", AT_FDCWD, name.c_str(), AT_EMPTY_PATH) != 0 && errno == GetParam();
        ::close(fd);
        const auto before = testsupport::openDescriptors();
        store.removeKeys(kDomain, PreferencesHost::anyHost, {"Volume"});
        const bool leaked = testsupport::openDescriptors() != before;
        return std::string(refused ? "refused" : "linked") + (leaked ? " leaked" : "");
    });

    EXPECT_EQ(answer, "refused");
    EXPECT_EQ(keysIn(anyHostFile), std::vector<std::string>{"SubtitleLanguage"});
    EXPECT_EQ(testsupport::listNames(preferences),
              (std::vector<std::string>{"ByHost", anyHostName}));
}

INSTANTIATE_TEST_SUITE_P(Errors,
                         DescriptorLinkRefusedTest,
                         ::testing::Values(ENOENT, EPERM),
                         [](const auto& info) { return std::string(strerrorname_np(info.param)); });

// Killed after the new file is complete but before it has a name: nothing is
// left but the old file.
TEST_F(RewriteTest, KilledBeforeTheNewFileIsNamedLeavesOnlyTheOldFile) {
    plant(anyHostFile, {"Volume", "SubtitleLanguage", "ShowPlaylist"});
    const std::string oldBytes = readFile(anyHostFile);
    const struct stat before = statOf(anyHostFile);

    EXPECT_EQ(endOfChild([&] {
                  if (killAtCalls(kLinks)) {
                      store.removeKeys(kDomain, PreferencesHost::anyHost, {"SubtitleLanguage"});
                  }
              }),
              "killed by KILL");

    EXPECT_EQ(readFile(anyHostFile), oldBytes);
    EXPECT_TRUE(sameFileAndTime(statOf(anyHostFile), before));
    EXPECT_EQ(testsupport::listNames(preferences),
              (std::vector<std::string>{"ByHost", anyHostName}));
}

class KilledBeforeRenameTest : public RewriteTest, public ::testing::WithParamInterface<NewFile> {};

// Killed just before the rename: the old file is whole, and beside it is one
// complete temporary under this program's pattern. The settings count as
// present while it is there; since the killed rewrite no longer holds it, the
// next removal takes it at once, however recent it is.
TEST_P(KilledBeforeRenameTest, LeavesTheOldFileAndATemporaryThatALaterRunRemoves) {
    const std::vector<std::string> planted = {"Volume", "SubtitleLanguage", "ShowPlaylist"};
    plant(anyHostFile, planted);
    const std::string oldBytes = readFile(anyHostFile);
    const auto fault =
        unnamedRefused(GetParam(), PreferencesHost::anyHost, anyHostFile, {"SubtitleLanguage"});
    const struct stat before = statOf(anyHostFile);

    EXPECT_EQ(endOfChild([&] {
                  faults::arm(fault);
                  if (killAtCalls(kRenames)) {
                      store.removeKeys(kDomain, PreferencesHost::anyHost, {"SubtitleLanguage"});
                  }
              }),
              "killed by KILL");

    EXPECT_EQ(readFile(anyHostFile), oldBytes);
    EXPECT_TRUE(sameFileAndTime(statOf(anyHostFile), before));
    const auto left = namesBut(preferences, {"ByHost", anyHostName});
    ASSERT_EQ(left.size(), 1u) << testing::PrintToString(left);
    EXPECT_TRUE(isTemporaryOf(left[0], anyHostName)) << left[0];
    const std::string leftover = preferences + "/" + left[0];
    EXPECT_EQ(keysIn(leftover), (std::vector<std::string>{"Volume", "ShowPlaylist"}));
    EXPECT_EQ(store.keys(kDomain, PreferencesHost::anyHost), planted);

    EXPECT_TRUE(store.hasValues(kDomain));

    store.removeAll(kDomain);
    EXPECT_EQ(testsupport::listNames(preferences), std::vector<std::string>{"ByHost"});
    EXPECT_FALSE(store.hasValues(kDomain));
}

INSTANTIATE_TEST_SUITE_P(Ways,
                         KilledBeforeRenameTest,
                         ::testing::Values(NewFile::unnamed, NewFile::named),
                         [](const auto& info) { return describe(info.param); });

}  // namespace
